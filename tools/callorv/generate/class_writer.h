// Typed C++ classes for the messages of a dictionary.
#ifndef CALLORV_TOOLS_CLASS_WRITER_H
#define CALLORV_TOOLS_CLASS_WRITER_H

#include <map>
#include <string>

#include "generate/class_names.h"
#include "generate/code_writer.h"

// Writes one header with a class for each message.
class CClassWriter : public CCodeWriter {
 public:
  CClassWriter(const CMsgDic& p_cDic, std::string p_sNamespace);

  std::string Name(int p_iMsg) const override { return m_sNamespace + "::" + Names(p_iMsg).sClass; }
  std::string File(int p_iMsg) const override { return Names(p_iMsg).sHeader; }
  std::string Text(int p_iMsg) const override;
  const char* WhatMany() const override { return "class"; }
  const char* WhatFiles() const override { return "header"; }

 private:
  const std::string m_sNamespace;
  const std::map<int, T_ClassName> m_cNames;

  const T_ClassName& Names(int p_iMsg) const { return m_cNames.at(p_iMsg); }
  std::string QualifiedClass(int p_iMsg) const { return "::" + m_sNamespace + "::" + Names(p_iMsg).sClass; }
  std::string MemberType(const CTagInfo& p_tTag) const;
};

#endif

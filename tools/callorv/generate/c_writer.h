// Typed functions of C for the messages of a dictionary.
#ifndef CALLORV_TOOLS_C_WRITER_H
#define CALLORV_TOOLS_C_WRITER_H

#include <map>
#include <string>

#include "generate/code_writer.h"

// Writes one header for each message: C99, also for C++, static inline functions over callorv.h. A name is made of the
// name space, the message, a verb and the tag, with underscores between them. Messages and verbs have none inside and
// the name space is always the same, so no two names can be.
class CCWriter : public CCodeWriter {
 public:
  CCWriter(const CMsgDic& p_cDic, const std::string& p_sNamespace);

  std::string Name(int p_iMsg) const override { return m_sPrefix + m_cNames.at(p_iMsg); }
  std::string File(int p_iMsg) const override;
  std::string Text(int p_iMsg) const override;
  const char* WhatMany() const override { return "message"; }
  const char* WhatFiles() const override { return "header"; }

 private:
  std::string m_sPrefix;
  const std::map<int, std::string> m_cNames;
};

#endif

// Dataclasses of Python for the messages of a dictionary.
#ifndef CALLORV_TOOLS_PYTHON_WRITER_H
#define CALLORV_TOOLS_PYTHON_WRITER_H

#include <map>
#include <string>

#include "generate/code_writer.h"

// Writes a package: one module with a dataclass for each message, for Python 3.9 and later and the module callorv.
class CPythonWriter : public CCodeWriter {
 public:
  explicit CPythonWriter(const CMsgDic& p_cDic);

  std::string Name(int p_iMsg) const override { return m_cNames.at(p_iMsg); }
  std::string File(int p_iMsg) const override { return Module(p_iMsg) + ".py"; }
  std::string Text(int p_iMsg) const override;
  // Also tags that have the name of an earlier one: the module callorv finds them by name.
  std::vector<std::string> LeftOut(int p_iMsg) const override;
  const char* WhatMany() const override { return "class"; }
  const char* WhatFiles() const override { return "module"; }
  std::string BesideName() const override { return "__init__.py"; }
  std::string BesideText() const override;

 private:
  const std::map<int, std::string> m_cNames;

  std::string Module(int p_iMsg) const;
  std::string Import(int p_iMsg) const;
  // The type of one value, and what becomes of it on its way to the module callorv and back: p_sValue stands for it.
  std::string Type(int p_iMsg, const CTagInfo& p_tTag) const;
  std::string Class(int p_iMsg, int p_iSub) const;
  std::string FromValue(int p_iMsg, const CTagInfo& p_tTag, const std::string& p_sValue) const;
};

#endif

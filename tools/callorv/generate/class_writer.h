// Typed C++ classes for the messages of a dictionary.
#ifndef CALLORV_TOOLS_CLASS_WRITER_H
#define CALLORV_TOOLS_CLASS_WRITER_H

#include <callorv/dict/msg_dic.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "generate/class_names.h"

// Writes one header for each message. The text depends on the dictionary and the name space alone.
class CClassWriter {
 public:
  CClassWriter(const CMsgDic& p_cDic, std::string p_sNamespace);    // p_cDic is borrowed

  // The messages and whatever they hold, directly or not; every message of the dictionary for an empty set.
  // Throws CFailure for one that the dictionary does not have.
  std::set<int> WithSubMsgs(const std::set<int>& p_cMsgs) const;

  const T_ClassName& Name(int p_iMsg) const { return m_cNames.at(p_iMsg); }
  // The text of the message's header.
  std::string Header(int p_iMsg) const;
  // What Header leaves out, one text each: tags whose message the dictionary does not have.
  std::vector<std::string> LeftOut(int p_iMsg) const;

 private:
  const CMsgDic& m_cDic;
  const std::string m_sNamespace;
  const std::map<int, T_ClassName> m_cNames;

  std::string Guard(const std::string& p_sHeader) const;
  std::string QualifiedClass(int p_iMsg) const { return "::" + m_sNamespace + "::" + Name(p_iMsg).sClass; }
  std::string MemberType(const CTagInfo& p_tTag) const;
  std::set<int> SubMsgs(int p_iMsg) const;    // of its tags, as far as they are defined
};

#endif

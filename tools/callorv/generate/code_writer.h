// Code for the messages of a dictionary, in any language: one file for each message.
#ifndef CALLORV_TOOLS_CODE_WRITER_H
#define CALLORV_TOOLS_CODE_WRITER_H

#include <callorv/dict/msg_dic.h>

#include <set>
#include <string>
#include <vector>

// The texts depend on the dictionary and on what the constructor of the language is given, and on nothing else.
class CCodeWriter {
 public:
  explicit CCodeWriter(const CMsgDic& p_cDic) : m_cDic(p_cDic) {}    // borrowed
  virtual ~CCodeWriter() = default;
  CCodeWriter(const CCodeWriter&) = delete;
  CCodeWriter& operator=(const CCodeWriter&) = delete;

  // The messages and whatever they hold, directly or not; every message of the dictionary for an empty set.
  // Throws CFailure for one that the dictionary does not have.
  std::set<int> WithSubMsgs(const std::set<int>& p_cMsgs) const;

  virtual std::string Name(int p_iMsg) const = 0;    // by which a program knows the message's code
  virtual std::string File(int p_iMsg) const = 0;    // the name of its file
  virtual std::string Text(int p_iMsg) const = 0;    // of that
  // What the text leaves out, one text each: tags whose message the dictionary does not have.
  virtual std::vector<std::string> LeftOut(int p_iMsg) const;
  // What is counted in the report: "class", "header".
  virtual const char* WhatMany() const = 0;
  virtual const char* WhatFiles() const = 0;
  // A file that has to stand beside the others, unless there is one; "" is none.
  virtual std::string BesideName() const { return ""; }
  virtual std::string BesideText() const { return ""; }

 protected:
  const CMsgDic& m_cDic;

  bool IsMessage(int p_iMsg) const { return m_cDic.GetMsgInfo(p_iMsg) != nullptr; }
  // Whether the tag's message is missing.
  bool IsLost(const CTagInfo& p_tTag) const { return p_tTag.m_eType == TAG_SUBMSG && !IsMessage(p_tTag.m_iSubMsg); }
  std::set<int> SubMsgs(int p_iMsg) const;    // of its tags, as far as they are defined
  // 'Message 3 "Quote", version "1.0"'
  std::string Title(int p_iMsg) const;
  // 'tag 15 "lost" is left out: ' and why.
  static std::string LeftOutText(const CTagInfo& p_tTag, const std::string& p_sWhy);
};

// The text with every %X replaced, X being the letter before each replacement.
std::string Filled(std::string_view p_sText, const std::vector<std::pair<char, std::string>>& p_atWith);

#endif

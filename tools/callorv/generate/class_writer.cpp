// Typed C++ classes for the messages of a dictionary.
#include "generate/class_writer.h"

#include <algorithm>

#include "command.h"
#include "common/tags.h"
#include "common/text.h"

namespace {

// A name of the dictionary inside a comment. The closing quote keeps a backslash from joining two lines.
std::string Quoted(const CString& p_sName) { return '"' + Printable(p_sName.ToStr(), false) + '"'; }

std::string OpenNamespace(const std::string& p_sName) {
  std::string sText = "namespace " + p_sName + " {";
  for (size_t i; (i = sText.find("::")) != std::string::npos;) sText.replace(i, 2, " { namespace ");
  return sText + "\n\n";
}

std::string CloseNamespace(const std::string& p_sName) {
  std::string sText = "}";
  for (size_t i = 0; (i = p_sName.find("::", i)) != std::string::npos; i += 2) sText += " }";
  return sText + "    // namespace " + p_sName + "\n";
}

// The text with every %C replaced.
std::string Filled(std::string p_sText, const std::string& p_sClass) {
  for (size_t i = 0; (i = p_sText.find("%C", i)) != std::string::npos; i += p_sClass.size()) {
    p_sText.replace(i, 2, p_sClass);
  }
  return p_sText;
}

constexpr char s_szOperations[] =
    "  int LoadFromMsg(::CMsg* p_pMsg) override { return ::callorv::detail::LoadTypedMsg(*this, p_pMsg); }\n"
    "  ::CMsg* CreateMsg() override { return ::callorv::detail::CreateTypedMsg(*this); }\n";

// A class with sub-messages has incomplete members: what needs them whole is declared inside it and defined when the
// classes of its sub-messages are complete.
constexpr char s_szDeclarations[] =
    "  %C();\n"
    "  %C(const %C&);\n"
    "  %C(%C&&);\n"
    "  %C& operator=(const %C&);\n"
    "  %C& operator=(%C&&);\n"
    "  ~%C() override;\n"
    "\n"
    "  int LoadFromMsg(::CMsg* p_pMsg) override;\n"
    "  ::CMsg* CreateMsg() override;\n";
constexpr char s_szDefinitions[] =
    "inline %C::%C() = default;\n"
    "inline %C::%C(const %C&) = default;\n"
    "inline %C::%C(%C&&) = default;\n"
    "inline %C& %C::operator=(const %C&) = default;\n"
    "inline %C& %C::operator=(%C&&) = default;\n"
    "inline %C::~%C() = default;\n"
    "inline int %C::LoadFromMsg(::CMsg* p_pMsg) { return ::callorv::detail::LoadTypedMsg(*this, p_pMsg); }\n"
    "inline ::CMsg* %C::CreateMsg() { return ::callorv::detail::CreateTypedMsg(*this); }\n";

// A member, and what stands in the comment behind it.
struct T_Line {
  std::string sCode, sComment;
};

std::string Aligned(const std::vector<T_Line>& p_atLine) {
  size_t iWidth = 0;
  for (const T_Line& tLine : p_atLine) iWidth = std::max(iWidth, tLine.sCode.size());
  std::string sText;
  for (const T_Line& tLine : p_atLine) {
    sText += tLine.sCode + std::string(iWidth - tLine.sCode.size(), ' ') + "    // " + tLine.sComment + "\n";
  }
  return sText;
}

}    // namespace

CClassWriter::CClassWriter(const CMsgDic& p_cDic, std::string p_sNamespace)
    : m_cDic(p_cDic), m_sNamespace(std::move(p_sNamespace)), m_cNames(ClassNames(p_cDic)) {}

std::set<int> CClassWriter::WithSubMsgs(const std::set<int>& p_cMsgs) const {
  std::set<int> cAll;
  std::vector<int> aNew(p_cMsgs.begin(), p_cMsgs.end());
  if (p_cMsgs.empty()) {
    for (const auto& [iMsg, tName] : m_cNames) cAll.insert(iMsg);
  }
  while (!aNew.empty()) {
    const int iMsg = aNew.back();
    aNew.pop_back();
    if (m_cNames.count(iMsg) == 0) throw CFailure("message " + std::to_string(iMsg) + " is not in the dictionary");
    if (!cAll.insert(iMsg).second) continue;
    for (int iSub : SubMsgs(iMsg)) aNew.push_back(iSub);
  }
  return cAll;
}

std::set<int> CClassWriter::SubMsgs(int p_iMsg) const {
  std::set<int> cSubs;
  for (const CTagInfo* pTag : FirstTags(*m_cDic.GetMsgInfo(p_iMsg))) {
    if (pTag->m_eType == TAG_SUBMSG && m_cNames.count(pTag->m_iSubMsg) != 0) cSubs.insert(pTag->m_iSubMsg);
  }
  return cSubs;
}

std::string CClassWriter::Guard(const std::string& p_sHeader) const {
  std::string sGuard;
  for (char c : m_sNamespace + "_" + p_sHeader) {
    const bool bMark = c == ':' || c == '.';
    if (bMark && sGuard.back() == '_') continue;
    sGuard += bMark ? '_' : c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  }
  return sGuard;
}

// Names are qualified from the global one on, as members and classes may be called like anything.
std::string CClassWriter::MemberType(const CTagInfo& p_tTag) const {
  switch (p_tTag.m_eType) {
    case TAG_STRING: return p_tTag.m_bArray ? "::std::vector< ::CString>" : "::CStr";
    case TAG_INTEGER: return p_tTag.m_bArray ? "::std::vector<int>" : "::CInt";
    case TAG_DOUBLE: return p_tTag.m_bArray ? "::std::vector<double>" : "::CDbl";
    case TAG_BOOL: return p_tTag.m_bArray ? "::std::vector<bool>" : "::CBool";
    case TAG_DATE: return p_tTag.m_bArray ? "::std::vector< ::CDate>" : "::CDate";
    case TAG_SUBMSG:
      return (p_tTag.m_bArray ? "::std::vector< " : "::T_SubMsg< ") + QualifiedClass(p_tTag.m_iSubMsg) + ">";
    case TAG_UNKNOWN: break;
  }
  throw CFailure("tag " + std::to_string(p_tTag.m_iTagNum) + " has no type");
}

std::vector<std::string> CClassWriter::LeftOut(int p_iMsg) const {
  std::vector<std::string> aText;
  for (const CTagInfo* pTag : FirstTags(*m_cDic.GetMsgInfo(p_iMsg))) {
    if (pTag->m_eType != TAG_SUBMSG || m_cNames.count(pTag->m_iSubMsg) != 0) continue;
    aText.push_back("tag " + std::to_string(pTag->m_iTagNum) + " " + Quoted(pTag->m_sName) + " is left out: message " +
                    std::to_string(pTag->m_iSubMsg) + " is not in the dictionary");
  }
  return aText;
}

std::string CClassWriter::Header(int p_iMsg) const {
  const CMsgInfo& cInfo = *m_cDic.GetMsgInfo(p_iMsg);
  const T_ClassName& tName = Name(p_iMsg);
  const std::string sGuard = Guard(tName.sHeader);
  const std::set<int> cSubs = SubMsgs(p_iMsg);
  const std::map<int, std::string> cMembers = MemberNames(cInfo, tName.sClass);

  std::vector<T_Line> atMember;
  std::string sVisits, sForward, sIncludes;
  for (const CTagInfo* pTag : FirstTags(cInfo)) {
    if (pTag->m_eType == TAG_SUBMSG && cSubs.count(pTag->m_iSubMsg) == 0) continue;
    const std::string& sMember = cMembers.at(pTag->m_iTagNum);
    const std::string sTag = std::to_string(pTag->m_iTagNum);
    atMember.push_back({"  " + MemberType(*pTag) + " " + sMember + ";", "tag " + sTag + " " + Quoted(pTag->m_sName)});
    sVisits += "    p_Visitor(" + sTag + ", p_Self." + sMember + ");\n";
  }
  for (int iSub : cSubs) {
    if (iSub == p_iMsg) continue;
    sForward += "class " + Name(iSub).sClass + ";\n";
    sIncludes += "#include \"" + Name(iSub).sHeader + "\"\n";
  }
  std::string sMembers = Aligned(atMember);
  for (const std::string& sText : LeftOut(p_iMsg)) sMembers += "  // " + sText + "\n";

  std::string sText = "// Generated by `callorv generate` from a message dictionary: changes are lost.\n";
  sText += "#ifndef " + sGuard + "\n#define " + sGuard + "\n\n#include <callorv/client/typed_msg.h>\n\n";
  sText += OpenNamespace(m_sNamespace);
  if (!sForward.empty()) sText += sForward + "\n";
  sText += "// Message " + std::to_string(p_iMsg) + " " + Quoted(cInfo.GetMsgName());
  if (!cInfo.GetVersion().IsEmpty()) sText += ", version " + Quoted(cInfo.GetVersion());
  sText += "\nclass " + tName.sClass + " : public ::CMsgBase {\n public:\n";
  sText += "  enum { MSG_NUM = " + std::to_string(p_iMsg) + " };\n\n";
  if (!sMembers.empty()) sText += sMembers + "\n";
  sText += Filled(cSubs.empty() ? s_szOperations : s_szDeclarations, tName.sClass);
  sText += "\n  // Calls p_Visitor(tag number, member) for every tag, in the dictionary's order.\n";
  sText += "  template <class SELF, class VISITOR>\n";
  sText += sVisits.empty() ? "  static void VisitTags(SELF&, VISITOR&) {}\n"
                           : "  static void VisitTags(SELF& p_Self, VISITOR& p_Visitor) {\n" + sVisits + "  }\n";
  sText += "};\n\n" + CloseNamespace(m_sNamespace);
  // Behind the class, so that headers of messages that hold each other can include each other.
  if (!sIncludes.empty()) sText += "\n" + sIncludes;
  if (!cSubs.empty()) {
    sText += "\n" + OpenNamespace(m_sNamespace) + Filled(s_szDefinitions, tName.sClass) + "\n" +
             CloseNamespace(m_sNamespace);
  }
  return sText + "\n#endif\n";
}

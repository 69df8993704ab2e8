// Messages in XML that people write.
#include "common/msg_file.h"

#include <callorv/base/exception.h>

#include <climits>
#include <set>

#include "command.h"
#include "common/msg_value.h"
#include "common/text.h"

namespace {

enum { MAX_DEPTH = 1024 };    // open elements, as in what the library reads

class CMsgReader {
 public:
  CMsgReader(const CXmlFile& p_cFile, const CTextFilter& p_fnFilter) : m_cFile(p_cFile), m_fnFilter(p_fnFilter) {}

  void Read(CMsg& p_cMsg) {
    const pugi::xml_node cRoot = m_cFile.Root();
    if (std::string_view(cRoot.name()) != "msg") {
      m_cFile.Fail(cRoot, "the root element is '" + std::string(cRoot.name()) + "', not 'msg'");
    }
    ReadHead(p_cMsg, cRoot);
    ReadTags(p_cMsg, cRoot, 1);
  }

 private:
  const CXmlFile& m_cFile;
  const CTextFilter& m_fnFilter;
  bool m_bByName = false;

  // The attributes of the root element.
  void ReadHead(CMsg& p_cMsg, const pugi::xml_node& p_cRoot) {
    std::set<std::string> cSeen;
    std::string sVer;
    int iMsg = 0;
    for (const pugi::xml_attribute& cAttribute : p_cRoot.attributes()) {
      const std::string sName = cAttribute.name();
      std::string sValue = m_cFile.ValueOf(p_cRoot, cAttribute);
      if (!cSeen.insert(sName).second) m_cFile.Fail(p_cRoot, "attribute '" + sName + "' comes twice");
      if (sName == "no") {
        if (!ParseNumber(sValue, 1, INT_MAX, iMsg)) m_cFile.Fail(p_cRoot, "no: '" + sValue + "' is no message number");
      } else if (sName == "type") {
        if (sValue != "name" && sValue != "index") m_cFile.Fail(p_cRoot, "type: '" + sValue + "' is no name or index");
        m_bByName = sValue == "name";
      } else if (sName == "ver") {
        sVer = Version(p_cRoot, sValue);
      } else {
        m_cFile.Fail(p_cRoot, "attribute '" + sName + "' is none of no, type and ver");
      }
    }
    if (iMsg == 0) m_cFile.Fail(p_cRoot, "attribute 'no', the message's number, is missing");
    try {
      p_cMsg.Init(iMsg, 0, 0);
    } catch (const CException&) {
      m_cFile.Fail(p_cRoot, "no message '" + std::to_string(iMsg) + "' in the dictionary");
    }
    p_cMsg.SetVer(sVer.c_str());
  }

  std::string Version(const pugi::xml_node& p_cRoot, std::string p_sText) const {
    try {
      return m_fnFilter && !m_fnFilter(p_sText) ? "" : WireVersion(p_sText, "ver: ");
    } catch (const CFailure& cError) {
      m_cFile.Fail(p_cRoot, cError.what());
    }
  }

  // The definition of the tag that an element names.
  const CTagInfo& FindTag(const CMsg& p_cMsg, const pugi::xml_node& p_cElement) const {
    const std::string sName = p_cElement.name();
    const CMsgInfo* pInfo = p_cMsg.GetMsgInfo();
    int iTag = -1;
    if (m_bByName) {
      iTag = pInfo->GetTagNumByName(Latin1Name(p_cElement).c_str());
    } else if (sName[0] == 't' || sName[0] == 'a') {
      ParseNumber(std::string_view(sName).substr(1), 0, INT_MAX, iTag);
    }
    const CTagInfo* pTag = iTag < 0 ? nullptr : pInfo->GetTagInfo(iTag);
    if (pTag == nullptr) {
      m_cFile.Fail(p_cElement, "message " + std::to_string(p_cMsg.GetMsgNum()) + " has no tag '" + sName + "'" +
                                   (m_bByName ? "" : "; without type='name' tags are t1, t2 and so on"));
    }
    return *pTag;
  }

  // "" when the name cannot be written in ISO-8859-1, as no tag has it then.
  static std::string Latin1Name(const pugi::xml_node& p_cElement) {
    try {
      return ToLatin1(p_cElement.name());
    } catch (const CFailure&) {
      return "";
    }
  }

  void ReadTags(CMsg& p_cMsg, const pugi::xml_node& p_cParent, int p_iDepth) const {
    if (p_iDepth > MAX_DEPTH) m_cFile.Fail(p_cParent, "More than 1024 open elements");
    std::set<int> cSeen;
    for (const pugi::xml_node& cChild : p_cParent.children()) {
      if (cChild.type() == pugi::node_element) {
        ReadTag(p_cMsg, cChild, cSeen, p_iDepth + 1);
      } else if (!CXmlFile::IsBlank(cChild.value())) {
        m_cFile.Fail(cChild, "text in '" + std::string(p_cParent.name()) + "', which has tags");
      }
    }
  }

  void ReadTag(CMsg& p_cMsg, const pugi::xml_node& p_cElement, std::set<int>& p_cSeen, int p_iDepth) const {
    const CTagInfo& tTag = FindTag(p_cMsg, p_cElement);
    const std::string sName = p_cElement.name();
    if (p_cElement.first_attribute()) {
      m_cFile.Fail(p_cElement, sName + ": attribute '" + p_cElement.first_attribute().name() + "' is unknown");
    }
    if (!tTag.m_bArray && !p_cSeen.insert(tTag.m_iTagNum).second) {
      m_cFile.Fail(p_cElement, sName + ": a second value, and the tag is no array");
    }
    try {
      if (tTag.m_eType == TAG_SUBMSG) return ReadTags(*p_cMsg.MakeSubMsgEntry(tTag.m_iTagNum), p_cElement, p_iDepth);
      ReadValue(p_cMsg, tTag, p_cElement);
    } catch (const CException& cError) {
      m_cFile.Fail(p_cElement, sName + ": " + cError.GetText());
    }
  }

  void ReadValue(CMsg& p_cMsg, const CTagInfo& p_tTag, const pugi::xml_node& p_cElement) const {
    for (const pugi::xml_node& cChild : p_cElement.children()) {
      if (cChild.type() == pugi::node_element) {
        m_cFile.Fail(cChild, "'" + std::string(cChild.name()) + "' in '" + p_cElement.name() + "', which has a value");
      }
    }
    std::string sText = m_cFile.TextOf(p_cElement);
    try {
      if ((m_fnFilter && !m_fnFilter(sText)) || sText.empty()) return;
      SetValue(p_cMsg, p_tTag, p_cElement.name(), sText);
    } catch (const CFailure& cError) {
      m_cFile.Fail(p_cElement, cError.what());
    }
  }
};

}    // namespace

void ReadMsgFile(CMsg& p_cMsg, const std::string& p_sName, const std::string& p_sData, const CTextFilter& p_fnFilter) {
  ReadMsgFile(p_cMsg, CXmlFile(p_sName, p_sData), p_fnFilter);
}

void ReadMsgFile(CMsg& p_cMsg, const CXmlFile& p_cFile, const CTextFilter& p_fnFilter) {
  CMsgReader(p_cFile, p_fnFilter).Read(p_cMsg);
}

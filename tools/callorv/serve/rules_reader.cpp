// Reads rules.
#include "serve/rules_reader.h"

#include <callorv/base/exception.h>

#include <algorithm>
#include <climits>

#include "common/msg_from_json.h"
#include "common/msg_names.h"
#include "common/msg_path.h"
#include "common/text.h"
#include "serve/json_members.h"
#include "serve/placeholder.h"

namespace {

using CValue = CJsonIn::CValue;

enum { SERVICE_MIN = -999, SERVICE_MAX = 9999, LONGEST_KEY = 20 };    // what the header has room for

class CRulesReader {
 public:
  CRulesReader(std::shared_ptr<const CJsonIn> p_pDocument, const T_RulesSetting& p_t)
      : m_pDocument(std::move(p_pDocument)), m_t(p_t) {}

  std::shared_ptr<const CRules> Read() {
    std::vector<std::string> asKeys;
    Try([&] {
      const CValue cRoot = m_pDocument->Root();
      if (cRoot.Kind() != JSON_OBJECT) cRoot.Fail(cRoot.Words() + " stands where {\"rules\": [...]} belongs");
      Members(cRoot, {"$schema", "user_keys", "rules"});
      if (const CValue c = cRoot.Find("user_keys")) Try([&] { asKeys = UserKeys(c); });
      const CValue cRules = Needed(cRoot, "rules");
      ForEach(cRules, [&](const CValue& p_cRule) { ReadRule(p_cRule); });
    });
    if (!m_sWrong.empty()) throw CFailure(m_sWrong);
    return std::make_shared<CRules>(std::move(m_apRules), std::move(m_asPaths), std::move(asKeys));
  }

 private:
  const std::shared_ptr<const CJsonIn> m_pDocument;
  const T_RulesSetting& m_t;
  std::vector<std::unique_ptr<T_Rule>> m_apRules;
  std::vector<std::string> m_asPaths;
  std::string m_sWrong;

  // p_fn, whose failure is kept.
  template <class F>
  void Try(F p_fn) {
    try {
      p_fn();
    } catch (const CFailure& cError) {
      m_sWrong += (m_sWrong.empty() ? "" : "\n") + std::string(cError.what());
    }
  }

  void Members(const CValue& p_cObject, const std::vector<std::string>& p_asKnown) {
    if (p_cObject.Kind() != JSON_OBJECT) return CheckMembers(p_cObject, p_asKnown);
    Try([&] { CheckMembers(p_cObject, p_asKnown); });    // the known ones are looked at all the same
  }

  template <class F>
  void ForEach(const CValue& p_cList, F p_fn) {
    if (p_cList.Kind() != JSON_ARRAY) p_cList.Fail(p_cList.Words() + " stands where a list belongs");
    for (CValue c = p_cList.First(); c; c = c.Next()) Try([&] { p_fn(c); });
  }

  // One or a list of them.
  template <class F>
  void OneOrMore(const CValue& p_cValue, F p_fn) {
    if (p_cValue.Kind() != JSON_ARRAY) return p_fn(p_cValue);
    if (!p_cValue.First()) p_cValue.Fail("an empty list");
    ForEach(p_cValue, p_fn);
  }

  void ReadRule(const CValue& p_cRule) {
    auto pRule = std::make_unique<T_Rule>();
    T_Rule& tRule = *pRule;
    tRule.sName = std::to_string(m_apRules.size() + 1);
    m_apRules.push_back(std::move(pRule));
    Members(p_cRule, {"name", "service", "message", "user_keys", "values", "when", "set", "reply", "then", "delay",
                      "fault"});
    const auto fnMember = [&](const char* p_szName, auto p_fn) {
      if (const CValue c = p_cRule.Find(p_szName)) Try([&] { p_fn(c); });
    };
    fnMember("name", [&](const CValue& p_c) { tRule.sName += " '" + TextOf(p_c) + '\''; });
    fnMember("service", [&](const CValue& p_c) {
      OneOrMore(p_c, [&](const CValue& p_cOne) { tRule.aServices.push_back(Services(p_cOne)); });
    });
    bool bMessage = true;
    fnMember("message", [&](const CValue& p_c) {
      bMessage = false;
      tRule.iMsgNum = MessageOf(p_c);
      bMessage = true;
    });
    fnMember("user_keys", [&](const CValue& p_c) { tRule.asUserKeys = UserKeys(p_c); });
    if (bMessage) fnMember("values", [&](const CValue& p_c) { ReadValues(p_c, tRule); });
    fnMember("when", [&](const CValue& p_c) {
      Members(p_c, {"state"});
      tRule.cWhen = StateOf(Needed(p_c, "state"), false);
    });
    fnMember("set", [&](const CValue& p_c) { tRule.cSet = StateOf(p_c, true); });
    fnMember("reply", [&](const CValue& p_c) {
      OneOrMore(p_c, [&](const CValue& p_cOne) { tRule.atReplies.push_back(ReadReply(p_cOne)); });
    });
    fnMember("then", [&](const CValue& p_c) { tRule.eThen = Then(p_c, p_cRule); });
    fnMember("delay", [&](const CValue& p_c) {
      const auto iRule = static_cast<unsigned long long>(m_apRules.size());
      tRule.pDelay = std::make_unique<CDelay>(p_c, (iRule << 32) + static_cast<unsigned>(m_t.iSeed));
    });
    fnMember("fault", [&](const CValue& p_c) {
      std::vector<std::string> asFaults;
      OneOrMore(p_c, [&](const CValue& p_cOne) {
        asFaults.push_back(TextOf(p_cOne));
        At(p_cOne, [&] { CFaults({asFaults.back()}); });
      });
      if (m_sWrong.empty()) tRule.pFaults = std::make_unique<CFaults>(asFaults);
    });
  }

  std::pair<int, int> Services(const CValue& p_c) {
    if (p_c.Kind() != JSON_OBJECT) {
      const int i = IntOf(p_c, SERVICE_MIN, SERVICE_MAX);
      return {i, i};
    }
    Members(p_c, {"from", "to"});
    const CValue cFrom = p_c.Find("from"), cTo = p_c.Find("to");
    if (!cFrom && !cTo) p_c.Fail("a range needs from, to or both");
    const int iFrom = cFrom ? IntOf(cFrom, SERVICE_MIN, SERVICE_MAX) : SERVICE_MIN;
    const int iTo = cTo ? IntOf(cTo, SERVICE_MIN, SERVICE_MAX) : SERVICE_MAX;
    if (iTo < iFrom) p_c.Fail("'to' is less than 'from'");
    return {iFrom, iTo};
  }

  int MessageOf(const CValue& p_c) const {
    const std::string sMessage =
        p_c.Kind() == JSON_NUMBER ? std::to_string(IntOf(p_c, 1, CMsgDic::SLOTS - 1)) : TextOf(p_c);
    return At(p_c, [&] { return FindMessage(sMessage, m_t.cDic); });
  }

  std::vector<std::string> UserKeys(const CValue& p_c) {
    std::vector<std::string> asKeys;
    ForEach(p_c, [&](const CValue& p_cKey) {
      const std::string sKey = TextOf(p_cKey);
      asKeys.push_back(At(p_cKey, [&] { return ToLatin1(sKey); }));
      if (asKeys.back().empty() || asKeys.back().size() > LONGEST_KEY) p_cKey.Fail("a user key has 1 to 20 characters");
    });
    if (!p_c.First()) p_c.Fail("an empty list, which no user key is in");
    return asKeys;
  }

  void ReadValues(const CValue& p_c, T_Rule& p_tRule) {
    if (p_c.Kind() != JSON_OBJECT) p_c.Fail(p_c.Words() + " stands where an object belongs");
    for (CValue c = p_c.First(); c; c = c.Next()) {
      Try([&] {
        const std::string sPath(c.Name());
        if (!IsPath(sPath)) c.Fail("'" + sPath + "' is no tag");
        CCondition cCondition(c);
        if (p_tRule.iMsgNum != 0) {
          At(c, [&] { cCondition.CheckType(TypeAt(m_t.cDic, p_tRule.iMsgNum, sPath)); });
        }
        const auto it = std::find(m_asPaths.begin(), m_asPaths.end(), sPath);
        p_tRule.aValues.emplace_back(static_cast<size_t>(it - m_asPaths.begin()), std::move(cCondition));
        if (it == m_asPaths.end()) m_asPaths.push_back(sPath);
      });
    }
  }

  CStateValues StateOf(const CValue& p_c, bool p_bPlaceholders) {
    CStateValues cState;
    if (p_c.Kind() != JSON_OBJECT) p_c.Fail(p_c.Words() + " stands where an object belongs");
    for (CValue c = p_c.First(); c; c = c.Next()) {
      Try([&] {
        const std::string sName(c.Name());
        if (!IsStateName(sName)) c.Fail("'" + sName + "' is no name: 1 to 64 letters, digits, _, . and -");
        if (c.Kind() != JSON_NULL) cState[sName] = TextOf(c);
        else cState[sName];
        if (p_bPlaceholders) At(c, [&] { HasPlaceholders(cState[sName], true); });
      });
    }
    return cState;
  }

  static T_Rule::E_Then Then(const CValue& p_c, const CValue& p_cRule) {
    const std::string sThen = TextOf(p_c);
    if (sThen != "last" && sThen != "repeat" && sThen != "next") {
      p_c.Fail("'" + sThen + "' is none of last, repeat and next");
    }
    const CValue cReply = p_cRule.Find("reply");
    if (!cReply || cReply.Kind() != JSON_ARRAY) p_c.Fail("it goes with a list of replies");
    return sThen == "last" ? T_Rule::LAST : sThen == "repeat" ? T_Rule::REPEAT : T_Rule::NEXT;
  }

  T_RuleReply ReadReply(const CValue& p_c) {
    T_RuleReply tReply;
    if (p_c.Kind() == JSON_TEXT) {
      tReply.sFile = FileOf(p_c);
      return tReply;
    }
    Members(p_c, {"file", "message", "values", "reject", "text"});
    const CValue cFile = p_c.Find("file"), cMessage = p_c.Find("message"), cReject = p_c.Find("reject");
    if ((cFile ? 1 : 0) + (cMessage ? 1 : 0) + (cReject ? 1 : 0) != 1) {
      p_c.Fail("a reply is a file, a message with its values or a rejection (reject), one of them");
    }
    const CValue cText = p_c.Find("text"), cValues = p_c.Find("values");
    if (cText && !cReject) cText.Fail("it goes with reject");
    if (cValues && !cMessage) cValues.Fail("it goes with message");
    if (cFile) tReply.sFile = FileOf(cFile);
    if (cMessage) tReply.pReply = Inline(MessageOf(cMessage), Needed(p_c, "values"));
    if (cReject) {
      tReply.iRejectCode = IntOf(cReject, INT_MIN, INT_MAX);
      if (cText) tReply.sRejectText = TextOf(cText);
      if (cText) At(cText, [&] { HasPlaceholders(tReply.sRejectText, true); });
    }
    return tReply;
  }

  std::string FileOf(const CValue& p_c) const {
    std::string sFile = TextOf(p_c);
    try {
      m_t.cFiles.Find(sFile);
    } catch (const CNoReply& cError) {
      p_c.Fail(cError.what());
    } catch (const CFailure& cError) {
      p_c.Fail(cError.what());
    }
    return sFile;
  }

  CReplyPtr Inline(int p_iMsgNum, const CValue& p_cValues) const {
    CMsg cMsg(0, 0, 0, &m_t.cDic);
    bool bCalls = false;
    MsgFromJson(cMsg, p_cValues, p_iMsgNum, [&](std::string& p_sText) {
      const bool bNow = HasPlaceholders(p_sText, true);
      bCalls |= bNow;
      return !bNow;
    });
    if (!bCalls) return FixedReply(cMsg, m_t.tMode);
    // The value belongs to the document, which lives as long as the reply does.
    return CallReply([=, pDocument = m_pDocument](CMsg& p_cReply, const T_CallValues& p_t) {
      MsgFromJson(p_cReply, p_cValues, p_iMsgNum, [&](std::string& p_sText) {
        p_sText = FillText(p_sText, p_t, true);
        return true;
      });
    });
  }
};

}    // namespace

std::shared_ptr<const CRules> ReadRules(const std::string& p_sName, const std::string& p_sBytes,
                                        const T_RulesSetting& p_t) {
  auto pDocument = std::make_shared<CJsonIn>();
  pDocument->Read(p_sName, p_sBytes);
  return CRulesReader(pDocument, p_t).Read();
}

// The messages that the tests of messages and their parts use.
#ifndef TESTS_UNIT_MSG_TEST_DIC_H
#define TESTS_UNIT_MSG_TEST_DIC_H

#include <callorv/base/exception.h>
#include <callorv/base/stream.h>
#include <callorv/dict/msg_dic.h>
#include <callorv/msg/msg.h>

#include <doctest/doctest.h>

#include <memory>
#include <string>

#include "support/fail_alloc.h"
#include "support/temp_file.h"

// What a call throws.
struct T_Thrown {
  int iCode = 0;    // 0: nothing was thrown
  std::string sText;
};

template <class F>
T_Thrown Caught(F p_fn) {
  try {
    p_fn();
  } catch (const CException& cError) {
    return {cError.GetCode(), cError.GetText()};
  }
  return {};
}

// CHECKs that a call throws CException with this code and text.
template <class F>
void CheckThrows(int p_iCode, const std::string& p_sText, F p_fn) {
  const T_Thrown tThrown = Caught(p_fn);
  CHECK(tThrown.iCode == p_iCode);
  CHECK(tThrown.sText == p_sText);
}

// The same while an allocation is made to fail: {1, "bad_alloc"} for a std::bad_alloc.
template <class F>
T_Thrown CaughtFailing(CFailAlloc& p_cFail, F p_fn) {
  bool bBadAlloc = false;
  const T_Thrown tThrown = Caught([&] { bBadAlloc = p_cFail.Run(p_fn); });
  return bBadAlloc ? T_Thrown{1, "bad_alloc"} : tThrown;
}

// Message 120 has a tag of every type, single (number below 10) and multi (ten more); 121 is its row, which may have
// rows of its own.
inline void DefineTestMessages(CMsgDic& p_cDic) {
  p_cDic.SetMsgInfo(120, "Everything", "1.0", "16");
  p_cDic.SetMsgDetail(120, 1, "text", "string", "N");
  p_cDic.SetMsgDetail(120, 7, "number", "integer", "N");
  p_cDic.SetMsgDetail(120, 3, "price", "double", "N");
  p_cDic.SetMsgDetail(120, 4, "flag", "bool", "N");
  p_cDic.SetMsgDetail(120, 5, "day", "date", "N");
  p_cDic.SetMsgDetail(120, 6, "row", "m121", "N");
  p_cDic.SetMsgDetail(120, 11, "texts", "string", "Y");
  p_cDic.SetMsgDetail(120, 17, "numbers", "integer", "Y");
  p_cDic.SetMsgDetail(120, 13, "prices", "double", "Y");
  p_cDic.SetMsgDetail(120, 14, "flags", "bool", "Y");
  p_cDic.SetMsgDetail(120, 15, "days", "date", "Y");
  p_cDic.SetMsgDetail(120, 16, "rows", "m121", "Y");
  p_cDic.SetMsgInfo(121, "Row", "", "");
  p_cDic.SetMsgDetail(121, 1, "text", "string", "N");
  p_cDic.SetMsgDetail(121, 2, "count", "integer", "N");
  p_cDic.SetMsgDetail(121, 3, "next", "m121", "N");
  p_cDic.SetMsgDetail(121, 4, "nexts", "m121", "Y");
}

class CTestDic : public CMsgDic {
 public:
  CTestDic() { DefineTestMessages(*this); }
};

// The test messages in a dictionary that was loaded from a file, so that the parser is initialised.
class CLoadedDic : public CMsgDic {
 public:
  CLoadedDic() {
    const CTempDir cDir;
    InitDictionary(cDir.Write("empty.xml", "<msg_dictionary/>").c_str());
    DefineTestMessages(*this);
  }
};

// The process-wide dictionary with the test messages.
inline CMsgDic& GlobalDic() {
  if (MA_GetMsgDic()->GetMsgInfo(120) == nullptr) DefineTestMessages(*MA_GetMsgDic());
  return *MA_GetMsgDic();
}

// One message with a dictionary of its own.
class CTestMsg {
 public:
  explicit CTestMsg(int p_iMsgNum) : m_pDic(new CTestDic), m_cMsg(p_iMsgNum, 0, 0, m_pDic.get()) {}
  CMsg* operator->() { return &m_cMsg; }
  CMsg& operator*() { return m_cMsg; }
  CMsgDic& Dic() { return *m_pDic; }

 private:
  std::unique_ptr<CMsgDic> m_pDic;
  CMsg m_cMsg;
};

// A row (message 121) that is not empty. The caller's, until a parent takes it.
inline CMsg* NewRow(CMsgDic& p_cDic, const char* p_szText) {
  auto pRow = std::make_unique<CMsg>(121, 0, 0, &p_cDic);
  pRow->SetValue(1, p_szText);
  return pRow.release();
}

// Texts of a stream and of a message.
inline std::string Text(const CStream& p_st) {
  return std::string(p_st.GetData(), static_cast<size_t>(p_st.GetSize()));
}
inline std::string ToXml(const CMsg& p_cMsg, bool p_bArrayPrefix = false, bool p_bByName = false) {
  CStream stOut(0, 512);
  p_cMsg.ToXml(&stOut, p_bArrayPrefix, p_bByName, 1);
  return Text(stOut);
}

// Fills a message from a text that need not be writable.
inline int Load(CMsg& p_cMsg, std::string p_sXml) { return p_cMsg.LoadXml(&p_sXml[0]); }

#endif

// The messages that are measured: a request of ten fields, a reply of rows with a string, an integer, a double, a bool.
#include "payload.h"

#include "floors/plain_writer.h"

#include <callorv/base/stream.h>

#include <cstdio>

namespace {

const char s_szXmlHead[] = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<msg_dictionary>\n";
const char s_szXmlTail[] = "</msg_dictionary>\n";

const char* TypeWord(int p_iTag) {
  static const char* const s_aszWord[] = {"string", "integer", "double", "bool"};
  return s_aszWord[(p_iTag - 1) % 4];
}

std::string Message(int p_iMsg, int p_iHash, int p_iTags, const char* (*p_fnType)(int)) {
  const std::string sMsg = std::to_string(p_iMsg);
  std::string sOut = "  <msg no=\"" + sMsg + "\" name=\"Message" + sMsg + "\" ver=\"1.0\" hash=\"" +
                     std::to_string(p_iHash) + "\">\n";
  for (int i = 1; i <= p_iTags; ++i) {
    const std::string sTag = std::to_string(i);
    sOut += "    <tag no=\"" + sTag + "\" name=\"FieldNumber" + sTag + "\" type=\"" + p_fnType(i) + "\" />\n";
  }
  return sOut + "  </msg>\n";
}

std::string ServiceMessages() {
  return Message(REQUEST_MSG, 16, 10, TypeWord) +
         "  <msg no=\"1102\" name=\"Reply\" ver=\"1.0\" hash=\"16\">\n"
         "    <tag no=\"1\" name=\"Code\" type=\"integer\" />\n"
         "    <tag no=\"16\" name=\"Rows\" type=\"m1103\" array=\"Y\" />\n  </msg>\n" +
         Message(ROW_MSG, 16, 4, TypeWord);
}

}    // namespace

std::string ServiceDictionary() { return s_szXmlHead + ServiceMessages() + s_szXmlTail; }

std::string PayloadDictionary() {
  return s_szXmlHead + ServiceMessages() + Message(FIELDS_MSG, 32, FIELDS, TypeWord) +
         Message(BUCKET_MSG, 1, BUCKET_TAGS, [](int) { return "integer"; }) + s_szXmlTail;
}

std::string LongDictionary(int p_iMsgs, int p_iTags) {
  std::string sOut = s_szXmlHead;
  for (int i = 1; i <= p_iMsgs; ++i) sOut += Message(i, 32, p_iTags, TypeWord);
  return sOut + s_szXmlTail;
}

std::vector<T_Row> MakeRows(int p_iRows) {
  std::vector<T_Row> atRow;
  for (int i = 0; i < p_iRows; ++i) {
    char szText[16];
    snprintf(szText, sizeof(szText), "SYMBOL%04d", i % 10000);
    atRow.push_back({szText, 10000 + i % 90000, 100.0 + 0.37 * i, i % 2 == 0});
  }
  return atRow;
}

CMsgPtr NewRequest() {
  CMsgPtr pMsg = NewMsg(REQUEST_MSG);
  for (int i = 1; i <= 10; ++i) {
    const std::string sType = TypeWord(i);
    Expect(sType == "string"    ? pMsg->SetValue(i, "SYMBOL0001")
           : sType == "integer" ? pMsg->SetValue(i, 1000 * i)
           : sType == "double"  ? pMsg->SetValue(i, 1.37 * i)
                                : pMsg->SetValue(i, true),
           "request");
  }
  return pMsg;
}

CMsgPtr NewReply(const std::vector<T_Row>& p_atRow) {
  CMsgPtr pMsg = NewMsg(REPLY_MSG);
  for (const T_Row& tRow : p_atRow) {
    CMsg* pRow = pMsg->NewSub(ROWS_TAG);
    Expect(pRow != nullptr ? 0 : -1, "row");
    Expect(pRow->SetValue(1, tRow.sText.c_str()), "text");
    Expect(pRow->SetValue(2, tRow.iNumber), "number");
    Expect(pRow->SetValue(3, tRow.dPrice), "price");
    Expect(pRow->SetValue(4, tRow.bFlag), "flag");
  }
  return pMsg;
}

std::string ToXml(const CMsg& p_cMsg) {
  CStream stXml(0, 512);
  Expect(p_cMsg.ToXml(&stXml, false, false, 1), "ToXml");
  return std::string(stXml.GetData(), static_cast<size_t>(stXml.GetSize()));
}

void FillPacket(CAdaptor::T_PacketInfo& p_tInfo) {
  const std::string sBody = WritePlainly(MakeRows(15));
  Expect(p_tInfo.stBody.AppendData(sBody.data(), static_cast<int>(sBody.size())), "AppendData");
  p_tInfo.bCompressed = true;
}

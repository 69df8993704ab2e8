// The messages that are measured: a request of ten fields, a reply of rows with a string, an integer, a double, a bool.
#ifndef BENCH_PAYLOAD_H
#define BENCH_PAYLOAD_H

#include <callorv/msg/msg.h>
#include <callorv/net/adaptor.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

enum E_PayloadMsg { REQUEST_MSG = 1101, REPLY_MSG = 1102, ROW_MSG = 1103, FIELDS_MSG = 1104, BUCKET_MSG = 1105 };
enum { ROWS_TAG = 16, FIELDS = 20, BUCKET_TAGS = 1000 };

struct T_Row {
  std::string sText;
  int iNumber;
  double dPrice;
  bool bFlag;
};

struct T_FreeMsg {
  void operator()(CMsg* p_pMsg) const { MA_FreeMsg(p_pMsg); }
};
using CMsgPtr = std::unique_ptr<CMsg, T_FreeMsg>;

inline CMsgPtr NewMsg(int p_iMsgNum) {
  CMsgPtr pMsg(MA_NewMsg(p_iMsgNum));
  if (pMsg == nullptr) throw std::runtime_error("no message " + std::to_string(p_iMsgNum));
  return pMsg;
}

inline void Expect(int p_iRet, const char* p_szWhat) {
  if (p_iRet != 0) throw std::runtime_error(std::string(p_szWhat) + ": " + std::to_string(p_iRet));
}

// The dictionary of the request, the reply and its row.
std::string ServiceDictionary();
// The dictionary of all these messages. FIELDS_MSG has five strings, integers, doubles and bools in turn; BUCKET_MSG
// has BUCKET_TAGS integers, all in one hash chain.
std::string PayloadDictionary();
// A dictionary of messages 1 to p_iMsgs, each of p_iTags tags.
std::string LongDictionary(int p_iMsgs, int p_iTags);

std::vector<T_Row> MakeRows(int p_iRows);
CMsgPtr NewRequest();
CMsgPtr NewReply(const std::vector<T_Row>& p_atRow);
std::string ToXml(const CMsg& p_cMsg);
// A packet with 1.5 kB, 15 rows, to be compressed.
void FillPacket(CAdaptor::T_PacketInfo& p_tInfo);

#endif

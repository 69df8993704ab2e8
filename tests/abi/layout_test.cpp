// What programs have compiled in: the order of fields and of virtual functions.
#include <callorv/adaptor/tcp_adaptor.h>
#include <callorv/callorv.hpp>
#include <callorv/msg/error.h>
#include <callorv/msg/tag_info.h>
#include <doctest/doctest.h>

#include <algorithm>
#include <vector>

namespace {

// The addresses of fields, which must rise.
using Fields = std::vector<const void*>;
void CheckOrder(const Fields& p_ap) {
  CHECK(std::is_sorted(p_ap.begin(), p_ap.end()));
  CHECK(std::adjacent_find(p_ap.begin(), p_ap.end()) == p_ap.end());
}

class CFieldsOfAdaptor : public CTcpAdaptor {
 public:
  Fields All() const { return {&sHost, &iPort, &iSock, &iSendTimeOut, &iRecvTimeOut}; }
};

class CNumberedAdaptor : public CAdaptor {
 public:
  int SendTo(T_PacketInfo*, int p_iTimeOut) override { return p_iTimeOut + 2; }
  int ReceiveFrom(T_PacketInfo*, int p_iTimeOut) override { return p_iTimeOut + 3; }
};

class CNumberedMsg : public CMsgBase {
 public:
  int LoadFromMsg(CMsg*) override { return 2; }
  CMsg* CreateMsg() override { return reinterpret_cast<CMsg*>(3); }
};

// A slot of an object's virtual table, whose first two are the destructors.
template <class FN>
FN* Slot(const void* p_pObject, int p_iSlot) {
  return reinterpret_cast<FN*>((*static_cast<void* const* const*>(p_pObject))[p_iSlot]);
}

}    // namespace

TEST_CASE("fields stand in the order in which programs know them") {
  const CTagInfo cTag;
  CheckOrder({&cTag.m_iTagNum, &cTag.m_sName, &cTag.m_eType, &cTag.m_iSubMsg, &cTag.m_bArray, &cTag.m_pNext});
  const CAdaptor::T_PacketInfo tInfo;
  CheckOrder({&tInfo.iSvcNum, &tInfo.iMsgNum, &tInfo.iExtra, &tInfo.sTimeStamp, &tInfo.sUserKey, &tInfo.sAux13,
              &tInfo.bCompressed, &tInfo.sAux8, &tInfo.sAux21, &tInfo.stBody});
  const CCallOrvError cError;
  CheckOrder({&cError.iCode, &cError.sText, &cError.iRefSvcNum});
  const CFieldsOfAdaptor cAdaptor;
  CheckOrder(cAdaptor.All());
  CHECK(sizeof(CLastError) == sizeof(void*));
}

TEST_CASE("virtual functions stand in the order in which programs know them") {
  CNumberedAdaptor cAdaptor;
  using FnPacket = int(CAdaptor*, CAdaptor::T_PacketInfo*, int);
  CHECK(Slot<FnPacket>(&cAdaptor, 2)(&cAdaptor, nullptr, 40) == 42);
  CHECK(Slot<FnPacket>(&cAdaptor, 3)(&cAdaptor, nullptr, 40) == 43);
  CNumberedMsg cMsg;
  CHECK(Slot<int(CMsgBase*, CMsg*)>(&cMsg, 2)(&cMsg, nullptr) == 2);
  CHECK(Slot<CMsg*(CMsgBase*)>(&cMsg, 3)(&cMsg) == reinterpret_cast<CMsg*>(3));
}

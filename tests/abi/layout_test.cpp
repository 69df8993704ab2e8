// What programs have compiled in: the order of fields and of virtual functions.
#include <callorv/callorv.hpp>
#include <callorv/dict/tag_info.h>
#include <callorv/error/error.h>
#include <callorv/net/tcp_adaptor.h>
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

// Private fields that inline functions read, by their place in the object; the program names them in explicit
// instantiations.
template <int CMsg::*ROOT, int CMsg::*NUM, int CMsg::*TAG, bool CMsg::*EMPTY, char (CMsg::*VER)[CMsg::VER_SIZE],
          CMsgValue* (CMsg::*SLOT)[CMsg::SLOTS], CMsg* CMsg::*PARENT, CMsgInfo* CMsg::*INFO>
struct T_FieldsOfMsg {
  friend Fields All(const CMsg& p_c) {
    return {&p_c, &(p_c.*ROOT), &(p_c.*NUM), &(p_c.*TAG), &(p_c.*EMPTY), &(p_c.*VER), &(p_c.*SLOT), &(p_c.*PARENT), &(p_c.*INFO)};
  }
};
Fields All(const CMsg& p_c);
template struct T_FieldsOfMsg<&CMsg::m_iRootNum, &CMsg::m_iMsgNum, &CMsg::m_iParentTag, &CMsg::m_bEmpty, &CMsg::m_szVer,
                              &CMsg::m_apSlot, &CMsg::m_pParent, &CMsg::m_pMsgInfo>;
template <int CMsgInfo::*NUM, CString CMsgInfo::*NAME, CString CMsgInfo::*VER, int CMsgInfo::*KEY, CIntArray CMsgInfo::*ORDER>
struct T_FieldsOfInfo {
  friend Fields All(const CMsgInfo& p_c) {
    return {&p_c, &(p_c.*NUM), &(p_c.*NAME), &(p_c.*VER), &(p_c.*KEY), &(p_c.*ORDER)};
  }
};
Fields All(const CMsgInfo& p_c);
template struct T_FieldsOfInfo<&CMsgInfo::m_iMsgNum, &CMsgInfo::m_sName, &CMsgInfo::m_sVer, &CMsgInfo::m_iHashKey,
                               &CMsgInfo::m_aTagOrder>;
template <CMsg** CMsgArray::*DATA, int CMsgArray::*SIZE, bool CMsgArray::*ADOPT>
struct T_FieldsOfArray {
  friend Fields All(const CMsgArray& p_c) { return {&p_c, &(p_c.*DATA), &(p_c.*SIZE), &(p_c.*ADOPT)}; }
};
Fields All(const CMsgArray& p_c);
template struct T_FieldsOfArray<&CMsgArray::m_apMsg, &CMsgArray::m_iSize, &CMsgArray::m_bAdopt>;

std::vector<std::ptrdiff_t> Offsets(const Fields& p_ap) {
  std::vector<std::ptrdiff_t> aiOffset;
  for (const void* p : p_ap) aiOffset.push_back(static_cast<const char*>(p) - static_cast<const char*>(p_ap.front()));
  return aiOffset;
}

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
}

TEST_CASE("fields that are read without a call stand where programs look for them") {
  const std::ptrdiff_t p = sizeof(void*), iSlots = p == 8 ? 40 : 36, iParent = iSlots + CMsg::SLOTS * p;
  const CMsg cMsg(0, 0, 0, MA_GetMsgDic());
  CHECK(Offsets(All(cMsg)) ==
        std::vector<std::ptrdiff_t>{0, p, p + 4, p + 8, p + 12, p + 13, iSlots, iParent, iParent + 3 * p});
  const std::ptrdiff_t s = sizeof(CString), iName = p == 8 ? 16 : 8, iOrder = iName + 2 * s + p;
  CHECK(Offsets(All(CMsgInfo())) == std::vector<std::ptrdiff_t>{0, p, iName, iName + s, iName + 2 * s, iOrder});
  CHECK(Offsets(All(CMsgArray(false))) == std::vector<std::ptrdiff_t>{0, p, 2 * p, 2 * p + 8});
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

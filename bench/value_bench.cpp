// Values of one message, the checksum, and a packet.
#include <callorv/callorv.h>
#include <callorv/net/tcp_adaptor.h>
#include <zlib.h>

#include <cstring>

#include "figure.h"
#include "figures.h"
#include "payload.h"

namespace {

enum { BATCH = 10000, MEGABYTE = 1 << 20 };

const char s_szText[] = "twenty-eight characters long";
static_assert(sizeof(s_szText) == 28 + 1);

// The first tag of each type in FIELDS_MSG and its name. Calls go round four tags of the type.
enum E_First { STRING_TAG = 1, INTEGER_TAG = 2, DOUBLE_TAG = 3 };
int TagAt(int p_iFirst, int p_iTurn) { return p_iFirst + 4 * (p_iTurn & 3); }

CMsgPtr NewFields() {
  CMsgPtr pMsg = NewMsg(FIELDS_MSG);
  for (int i = 1; i <= FIELDS; i += 4) {
    Expect(pMsg->SetValue(i, s_szText), "string");
    Expect(pMsg->SetValue(i + 1, i), "integer");
    Expect(pMsg->SetValue(i + 2, 0.5 * i), "double");
    Expect(pMsg->SetValue(i + 3, true), "bool");
  }
  return pMsg;
}

// p_fn(message, tag), by number.
template <class F>
void ByNumber(benchmark::State& p_cState, int p_iFirst, F p_fn) {
  const CMsgPtr pMsg = NewFields();
  int iTurn = 0;
  Measure(p_cState, BATCH, [&] { Expect(p_fn(*pMsg, TagAt(p_iFirst, iTurn++)), "access"); });
}

// p_fn(message, tag or name): by name against by number.
template <class F>
void ByName(benchmark::State& p_cState, int p_iFirst, F p_fn) {
  const CMsgPtr pMsg = NewFields();
  std::string asName[4];
  for (int i = 0; i < 4; ++i) asName[i] = "FieldNumber" + std::to_string(TagAt(p_iFirst, i));
  int iTurn = 0;
  Compare(
      p_cState, WORK, BATCH, [&] { Expect(p_fn(*pMsg, TagAt(p_iFirst, iTurn++)), "access"); },
      [&] { Expect(p_fn(*pMsg, asName[iTurn++ & 3].c_str()), "access"); });
}

template <class T>
const auto s_fnSet = [](CMsg& p_cMsg, auto p_Tag) {
  T Value = 4711;
  benchmark::DoNotOptimize(Value);    // as a value is that a program has computed
  return p_cMsg.SetValue(p_Tag, Value);
};
template <class T>
const auto s_fnGet = [](CMsg& p_cMsg, auto p_Tag) {
  T Value{};
  const int iRet = p_cMsg.GetValue(p_Tag, &Value);
  benchmark::DoNotOptimize(Value);
  return iRet;
};
const auto s_fnSetString = [](CMsg& p_cMsg, auto p_Tag) { return p_cMsg.SetValue(p_Tag, s_szText); };

// A text through the C interface: MSG_GetStr against GetValue, and the length of a long text against that of a short
// one.
void GetStr(benchmark::State& p_cState) {
  const CMsgPtr pMsg = NewFields();
  CString sValue;
  char szValue[sizeof(s_szText)];
  int iTurn = 0;
  Compare(
      p_cState, WORK, BATCH, [&] { Expect(pMsg->GetValue(TagAt(STRING_TAG, iTurn++), &sValue), "GetValue"); },
      [&] { Expect(MSG_GetStr(pMsg.get(), TagAt(STRING_TAG, iTurn++), szValue), "MSG_GetStr"); });
}
void GetStrLen(benchmark::State& p_cState) {
  const CMsgPtr pMsg = NewFields();
  const int iLong = STRING_TAG + 4;
  Expect(pMsg->SetValue(iLong, std::string(MEGABYTE, 'x').c_str()), "string");
  const auto fnLen = [&](int p_iTag) { benchmark::DoNotOptimize(MSG_GetStrLen(pMsg.get(), p_iTag)); };
  Compare(
      p_cState, WORK, BATCH, [&] { fnLen(STRING_TAG); }, [&] { fnLen(iLong); });
}

// Every tag of one long hash chain set and read, per tag.
void Bucket(benchmark::State& p_cState, int p_iTags) {
  Measure(p_cState, 1, [&] {
    CMsg cMsg(BUCKET_MSG, 0, 0, MA_GetMsgDic());
    for (int i = 1; i <= p_iTags; ++i) Expect(cMsg.SetValue(i, i), "set");
    for (int i = 1; i <= p_iTags; ++i) Expect(s_fnGet<int>(cMsg, i), "get");
  });
}

void CheckSum(benchmark::State& p_cState) {
  const std::vector<char> aBytes(MEGABYTE, 'x');
  std::vector<char> aCopy(MEGABYTE);
  Compare(
      p_cState, WORK, 4,
      [&] {
        memcpy(aCopy.data(), aBytes.data(), aBytes.size());
        benchmark::DoNotOptimize(aCopy.data());
        benchmark::ClobberMemory();
      },
      [&] { benchmark::DoNotOptimize(CAdaptor::CalcCheckSum(aBytes.data(), MEGABYTE)); });
}

// A packet with a compressed body, against compressing that body alone with a state that is kept.
void CompressedPacket(benchmark::State& p_cState) {
  CTcpAdaptor cAdaptor;
  CAdaptor::T_PacketInfo tInfo;
  FillPacket(tInfo);
  const size_t uLen = static_cast<size_t>(tInfo.stBody.GetSize());
  std::vector<char> aOut(uLen);
  z_stream tStream = {};
  Expect(deflateInit(&tStream, Z_DEFAULT_COMPRESSION), "deflateInit");
  Compare(
      p_cState, WORK, 20,
      [&] {
        deflateReset(&tStream);
        tStream.next_in = reinterpret_cast<Bytef*>(tInfo.stBody.GetData());
        tStream.avail_in = static_cast<uInt>(uLen);
        tStream.next_out = reinterpret_cast<Bytef*>(aOut.data());
        tStream.avail_out = static_cast<uInt>(aOut.size());
        Expect(deflate(&tStream, Z_FINISH) == Z_STREAM_END ? 0 : -1, "deflate");
      },
      [&] {
        CStream stPacket(0, 512);
        Expect(cAdaptor.BuildPacket(&tInfo, stPacket), "BuildPacket");
      });
  deflateEnd(&tStream);
}

}    // namespace

void RegisterValues() {
  Register("value/set_int", [](benchmark::State& p_c) { ByNumber(p_c, INTEGER_TAG, s_fnSet<int>); });
  Register("value/get_int", [](benchmark::State& p_c) { ByNumber(p_c, INTEGER_TAG, s_fnGet<int>); });
  Register("value/set_double", [](benchmark::State& p_c) { ByNumber(p_c, DOUBLE_TAG, s_fnSet<double>); });
  Register("value/get_double", [](benchmark::State& p_c) { ByNumber(p_c, DOUBLE_TAG, s_fnGet<double>); });
  Register("value/set_string", [](benchmark::State& p_c) { ByNumber(p_c, STRING_TAG, s_fnSetString); });
  Register("value/get_string", [](benchmark::State& p_c) {
    CString sValue;
    ByNumber(p_c, STRING_TAG, [&](CMsg& p_cMsg, int p_iTag) { return p_cMsg.GetValue(p_iTag, &sValue); });
  });
  Register("value/MSG_GetStr", GetStr);
  Register("value/MSG_GetStrLen", GetStrLen);
  Register("name/set_int", [](benchmark::State& p_c) { ByName(p_c, INTEGER_TAG, s_fnSet<int>); });
  Register("name/get_int", [](benchmark::State& p_c) { ByName(p_c, INTEGER_TAG, s_fnGet<int>); });
  Register("checksum", CheckSum);
  Register("packet/compressed", CompressedPacket);
  for (const int iTags : {1, 4, 16, 32, 64, 128, 256, 512, +BUCKET_TAGS}) {
    Register("growth/bucket/" + std::to_string(iTags), [=](benchmark::State& p_c) { Bucket(p_c, iTags); });
  }
}

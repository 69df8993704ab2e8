// Makes packets.
#include "net/packet_writer.h"

#include <time.h>
#include <zlib.h>

#include <climits>
#include <cstring>
#include <new>

#include "base/number.h"
#include "net/deflate_memory.h"
#include "net/packet_fields.h"

namespace callorv::detail {

namespace {

enum { HEADER_SIZE = CTcpAdaptor::HEADER_SIZE, TRAILER_SIZE = CTcpAdaptor::TRAILER_SIZE };

char* PutTwoDigits(char* p_p, int p_iValue) {    // 0 to 99
  *p_p++ = static_cast<char>('0' + p_iValue / 10);
  *p_p++ = static_cast<char>('0' + p_iValue % 10);
  return p_p;
}

void SetTimeStamp(CString& p_sOut) {
  const time_t tNow = time(nullptr);
  tm tLocal = {};
  localtime_r(&tNow, &tLocal);
  char szStamp[INT_CHARS + sizeof("mmdd-hhmmss")];
  char* p = PutPadded(szStamp, 4, tLocal.tm_year + 1900);
  p = PutTwoDigits(p, tLocal.tm_mon + 1);
  p = PutTwoDigits(p, tLocal.tm_mday);
  *p++ = '-';
  p = PutTwoDigits(p, tLocal.tm_hour);
  p = PutTwoDigits(p, tLocal.tm_min);
  p = PutTwoDigits(p, tLocal.tm_sec);
  p_sOut.Set(szStamp, static_cast<int>(p - szStamp));
}

// As zlib's compress(), byte for byte.
int Compress(char* p_pBody, int p_iLen, char* p_pOut, long long p_iRoom, int* p_pSentLen) {
  CDeflateMemory cMemory;
  z_stream tStream = {};
  cMemory.Serve(tStream);
  int iRet = deflateInit(&tStream, Z_DEFAULT_COMPRESSION);
  if (iRet != Z_OK) return iRet;
  tStream.next_in = reinterpret_cast<Bytef*>(p_pBody);
  tStream.avail_in = static_cast<uInt>(p_iLen);
  tStream.next_out = reinterpret_cast<Bytef*>(p_pOut);
  tStream.avail_out = static_cast<uInt>(p_iRoom);
  iRet = deflate(&tStream, Z_FINISH);
  *p_pSentLen = static_cast<int>(tStream.total_out);
  deflateEnd(&tStream);
  return iRet == Z_STREAM_END ? Z_OK : Z_BUF_ERROR;
}

}    // namespace

int WritePacket(CAdaptor::T_PacketInfo& p_tInfo, const CStream& p_stBody, int p_iBodyAt, CStream& p_stOut,
                T_Fault& p_tFault) {
  const int iPlainLen = p_stBody.GetSize() - p_iBodyAt;
  const auto fnFailed = [&](int p_iCode) {
    p_stOut.Clear();    // also of the header, which stands where an empty stream has its NUL
    return p_iCode;
  };
  SetTimeStamp(p_tInfo.sTimeStamp);
  // What zlib may need at worst is 0.1 % and 12 bytes more than the body.
  const long long iRoom = p_tInfo.bCompressed ? (iPlainLen + 12LL) * 1001 / 1000 + 1 : iPlainLen;
  int iSentLen = iPlainLen;
  char* pPacket = nullptr;
  try {
    if (iRoom > INT_MAX - HEADER_SIZE - TRAILER_SIZE) throw std::bad_alloc();
    pPacket = p_stOut.GetBuffer(HEADER_SIZE + static_cast<int>(iRoom) + TRAILER_SIZE);
  } catch (const std::bad_alloc&) {
    return fnFailed(p_tFault.Set(ADAPT_MEMORY, "(SendTo)"));
  }
  char* pBody = p_stBody.GetData() + p_iBodyAt;
  if (!p_tInfo.bCompressed) {
    if (&p_stBody != &p_stOut) memcpy(pPacket + HEADER_SIZE, pBody, static_cast<size_t>(iPlainLen));
  } else if (const int iZlib = Compress(pBody, iPlainLen, pPacket + HEADER_SIZE, iRoom, &iSentLen)) {
    return fnFailed(p_tFault.Set(ADAPT_COMPRESSION, "(SendTo)(%d)", iZlib));
  }
  if (const int iHeaderLen = WriteHeader(pPacket, p_tInfo, iPlainLen, iSentLen); iHeaderLen != HEADER_SIZE) {
    return fnFailed(p_tFault.Set(ADAPT_HEADER, "(SendTo) size mismatch(%d, %d)[%.*s]", +HEADER_SIZE, iHeaderLen,
                                 +HEADER_SIZE, pPacket));
  }
  const int iSum = CAdaptor::CalcCheckSum(pPacket, HEADER_SIZE + iSentLen);
  p_stOut.ReleaseBuffer(static_cast<int>(PutPadded(pPacket + HEADER_SIZE + iSentLen, TRAILER_SIZE, iSum) - pPacket));
  return 0;
}

int WritePacket(CAdaptor::T_PacketInfo& p_tInfo, CStream& p_stPacket, T_Fault& p_tFault) {
  if (!p_tInfo.bCompressed) return WritePacket(p_tInfo, p_stPacket, HEADER_SIZE, p_stPacket, p_tFault);
  CStream stPlain(0, 512);
  stPlain.Swap(p_stPacket);
  return WritePacket(p_tInfo, stPlain, HEADER_SIZE, p_stPacket, p_tFault);
}

void CopyHeader(const CStream& p_stPacket, char* p_pOut) {
  memcpy(p_pOut, p_stPacket.GetData(), HEADER_SIZE);
  memcpy(p_pOut + HEADER_SIZE, p_stPacket.GetData() + p_stPacket.GetSize() - TRAILER_SIZE, TRAILER_SIZE);
}

}    // namespace callorv::detail

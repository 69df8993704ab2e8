// Packets over a TCP connection.
#include "callorv/net/tcp_adaptor.h"

#include <time.h>
#include <zlib.h>

#include <climits>
#include <cstring>
#include <new>

#include "base/number.h"
#include "net/deflate_memory.h"
#include "net/packet_fields.h"
#include "net/packet_machine.h"

using namespace callorv::detail;

namespace {

void SetTimeStamp(CString& p_sOut) {
  const time_t tNow = time(nullptr);
  tm tLocal = {};
  localtime_r(&tNow, &tLocal);
  char szStamp[6 * INT_CHARS];
  char* p = PutPadded(szStamp, 4, tLocal.tm_year + 1900);
  p = PutPadded(p, 2, tLocal.tm_mon + 1);
  p = PutPadded(p, 2, tLocal.tm_mday);
  *p++ = '-';
  p = PutPadded(p, 2, tLocal.tm_hour);
  p = PutPadded(p, 2, tLocal.tm_min);
  p = PutPadded(p, 2, tLocal.tm_sec);
  p_sOut.Set(szStamp, static_cast<int>(p - szStamp));
}

// As zlib's compress(), byte for byte.
int Compress(const CStream& p_stBody, char* p_pOut, long long p_iRoom, int* p_pLen) {
  CDeflateMemory cMemory;
  z_stream tStream = {};
  cMemory.Serve(tStream);
  int iRet = deflateInit(&tStream, Z_DEFAULT_COMPRESSION);
  if (iRet != Z_OK) return iRet;
  tStream.next_in = reinterpret_cast<Bytef*>(p_stBody.GetData());
  tStream.avail_in = static_cast<uInt>(p_stBody.GetSize());
  tStream.next_out = reinterpret_cast<Bytef*>(p_pOut);
  tStream.avail_out = static_cast<uInt>(p_iRoom);
  iRet = deflate(&tStream, Z_FINISH);
  *p_pLen = static_cast<int>(tStream.total_out);
  deflateEnd(&tStream);
  return iRet == Z_STREAM_END ? Z_OK : Z_BUF_ERROR;
}

}    // namespace

CTcpAdaptor::CTcpAdaptor() : szLastRecvHeader(), szLastSendHeader(), bKeepHeaders(false) {}

CTcpAdaptor::~CTcpAdaptor() {}

const CTcpAdaptor::T_Field* CTcpAdaptor::GetField(int p_iField) {
  return p_iField >= 0 && p_iField < FIELDS ? &s_atFields[p_iField] : nullptr;
}

const char* CTcpAdaptor::GetBeginString() { return s_szBegin; }

int CTcpAdaptor::SendTo(T_PacketInfo* p_pInfo, int p_iTimeOut) {
  CStream stPacket(0, 512);
  const int iRet = BuildPacket(p_pInfo, stPacket);
  return iRet < 0 ? iRet : SendData(stPacket.GetData(), stPacket.GetSize(), p_iTimeOut);
}

int CTcpAdaptor::BuildPacket(T_PacketInfo* p_pInfo, CStream& p_stOut) {
  if (p_pInfo == nullptr) return Fail(ADAPT_NULL, "(SendTo)");
  SetTimeStamp(p_pInfo->sTimeStamp);

  p_stOut.Clear();
  const CStream& stBody = p_pInfo->stBody;
  const int iPlainLen = stBody.GetSize();
  int iSentLen = iPlainLen;
  char* pPacket = nullptr;
  try {
    // What zlib may need at worst is 0.1 % and 12 bytes more than the body.
    const long long iRoom = p_pInfo->bCompressed ? (iPlainLen + 12LL) * 1001 / 1000 + 1 : iPlainLen;
    if (iRoom > INT_MAX - HEADER_SIZE - TRAILER_SIZE) throw std::bad_alloc();
    pPacket = p_stOut.GetBuffer(HEADER_SIZE + static_cast<int>(iRoom) + TRAILER_SIZE);
    if (!p_pInfo->bCompressed) {
      memcpy(pPacket + HEADER_SIZE, stBody.GetData(), static_cast<size_t>(iPlainLen));
    } else if (const int iZlib = Compress(stBody, pPacket + HEADER_SIZE, iRoom, &iSentLen)) {
      return Fail(ADAPT_COMPRESSION, "(SendTo)(%d)", iZlib);
    }
  } catch (const std::bad_alloc&) {
    return Fail(ADAPT_MEMORY, "(SendTo)");
  }

  if (const int iHeaderLen = WriteHeader(pPacket, *p_pInfo, iSentLen); iHeaderLen != HEADER_SIZE) {
    Fail(ADAPT_HEADER, "(SendTo) size mismatch(%d, %d)[%.*s]", HEADER_SIZE, iHeaderLen, HEADER_SIZE, pPacket);
    p_stOut.Clear();    // the header stands where an empty stream has its NUL
    return ADAPT_HEADER;
  }
  char* pTrailer = pPacket + HEADER_SIZE + iSentLen;
  PutPadded(pTrailer, TRAILER_SIZE, CalcCheckSum(pPacket, HEADER_SIZE + iSentLen));
  if (bKeepHeaders) {
    memcpy(szLastSendHeader, pPacket, HEADER_SIZE);
    memcpy(szLastSendHeader + HEADER_SIZE, pTrailer, TRAILER_SIZE);
  }
  p_stOut.ReleaseBuffer(HEADER_SIZE + iSentLen + TRAILER_SIZE);
  return 0;
}

int CTcpAdaptor::ReceiveFrom(T_PacketInfo* p_pInfo, int p_iTimeOut) {
  const int iFirstRoom = 64 * 1024;
  return ReadPacket(p_pInfo, [=](CPacketMachine& p_cMachine, T_Fault& p_tFault) {
    while (p_cMachine.Part() != CPacketMachine::COMPLETE) {
      CPacketMachine::T_Room tRoom;
      int iRet = p_cMachine.GetRoom(iFirstRoom, tRoom, p_tFault);
      if (iRet < 0) return iRet;
      iRet = ReceiveData(tRoom.pAt, tRoom.iLen, p_iTimeOut);
      if (iRet < 0) return p_cMachine.Cut(iRet, p_tFault);
      iRet = p_cMachine.Fill(tRoom.iLen, p_tFault);
      if (iRet < 0) return iRet;
    }
    return 0;
  });
}

int CTcpAdaptor::ParsePacket(const char* p_pData, int p_iLen, T_PacketInfo* p_pInfo) {
  return ReadPacket(p_pInfo, [=](CPacketMachine& p_cMachine, T_Fault& p_tFault) {
    const int iRet = p_cMachine.Feed(p_pData, p_iLen, p_tFault);
    if (iRet < 0 || p_cMachine.Part() == CPacketMachine::COMPLETE) return iRet;
    return p_cMachine.Cut(RecvFault(0, p_tFault), p_tFault);
  });
}

template <class DRIVE>
int CTcpAdaptor::ReadPacket(T_PacketInfo* p_pInfo, DRIVE p_fnDrive) {
  if (p_pInfo == nullptr) return Fail(ADAPT_NULL, "p_pInfo");
  CPacketMachine cMachine(p_pInfo, bKeepHeaders ? szLastRecvHeader : nullptr);
  T_Fault tFault;
  const int iRet = p_fnDrive(cMachine, tFault);
  return tFault.iCode != 0 ? Fail(tFault.iCode, "%s", tFault.szDetail) : iRet;
}

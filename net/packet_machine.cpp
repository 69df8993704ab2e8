// What the bytes of a packet mean, as they come.
#include "net/packet_machine.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "base/number.h"
#include "net/packet_fields.h"

namespace callorv::detail {

namespace {

enum { FIRST_ROOM = 64 * 1024 };    // bytes of a body that are made room for at once when it is waited for

int NoMemory(T_Fault& p_tFault) { return p_tFault.Set(ADAPT_MEMORY, "ReceiveFrom"); }

}    // namespace

int CPacketMachine::GetRoom(int p_iFirst, T_Room& p_tRoom, T_Fault& p_tFault) {
  if (m_ePart == HEADER) {
    p_tRoom = {m_szFrame + m_iHave, CTcpAdaptor::HEADER_SIZE - m_iHave};
  } else if (m_ePart == TRAILER) {
    p_tRoom = {m_szFrame + CTcpAdaptor::HEADER_SIZE + m_iHave, CTcpAdaptor::TRAILER_SIZE - m_iHave};
  } else {
    try {
      if (m_iHave == m_iRoom) {
        int iMore = std::min(m_iBodyLen - m_iHave, std::max(m_iHave, p_iFirst));
        if (m_pBody == nullptr) {
          if (Body().GetSize() == BLOCK_BYTES) m_cBlocks.emplace_back(0, 1);
          iMore = std::min(iMore, BLOCK_BYTES - Body().GetSize());
        }
        m_iRoom += iMore;
      }
      const int iBefore = Body().GetSize();
      p_tRoom.iLen = m_iRoom - m_iHave;
      p_tRoom.pAt = Body().GetBuffer(iBefore + p_tRoom.iLen) + iBefore;
    } catch (const std::bad_alloc&) {
      return NoMemory(p_tFault);
    }
  }
  return 0;
}

int CPacketMachine::Fill(int p_iLen, T_Fault& p_tFault) {
  m_iHave += p_iLen;
  switch (m_ePart) {
    case HEADER:
      return m_iHave < CTcpAdaptor::HEADER_SIZE ? 0 : TakeHeader(p_tFault);
    case BODY:
      Body().ReleaseBuffer(Body().GetSize() + p_iLen);
      m_iBodySum = (m_iBodySum + CAdaptor::CalcCheckSum(Body().GetData() + Body().GetSize() - p_iLen, p_iLen)) % 256;
      return m_iHave < m_iBodyLen ? 0 : TakeBody(p_tFault);
    default:
      return m_iHave < CTcpAdaptor::TRAILER_SIZE ? 0 : TakeTrailer(p_tFault);
  }
}

int CPacketMachine::Feed(const char* p_pData, int p_iLen, T_Fault& p_tFault) {
  while (p_iLen > 0 && m_ePart != COMPLETE) {
    T_Room tRoom;
    int iRet = GetRoom(p_iLen, tRoom, p_tFault);
    if (iRet < 0) return iRet;
    const int iPart = std::min(tRoom.iLen, p_iLen);
    std::copy_n(p_pData, iPart, tRoom.pAt);
    iRet = Fill(iPart, p_tFault);
    if (iRet < 0) return iRet;
    p_pData += iPart;
    p_iLen -= iPart;
  }
  return 0;
}

int CPacketMachine::ReadFrom(CAdaptor& p_cFrom, int p_iTimeOut, T_Fault& p_tFault) {
  while (m_ePart != COMPLETE) {
    T_Room tRoom;
    int iRet = GetRoom(FIRST_ROOM, tRoom, p_tFault);
    if (iRet < 0) return iRet;
    iRet = p_cFrom.ReceiveData(tRoom.pAt, tRoom.iLen, p_iTimeOut);
    if (iRet < 0) return Cut(iRet, p_tFault);
    iRet = Fill(tRoom.iLen, p_tFault);
    if (iRet < 0) return iRet;
  }
  return 0;
}

int CPacketMachine::Cut(int p_iCode, T_Fault& p_tFault) {
  if (m_ePart == BODY) Body().Clear();
  if (p_iCode != ADAPT_TIMEOUT || m_ePart == HEADER) return p_iCode;
  return p_tFault.Set(ADAPT_CORRUPTED, "uncompleted packet timeout(%s)", PartName());
}

const CStream* CPacketMachine::Unpack(CStream& p_stRoom, T_Fault& p_tFault) {
  try {
    m_stSent.GetBuffer(m_iBodyLen);    // all in one piece
    for (; !m_cBlocks.empty(); m_cBlocks.pop_front()) {
      m_stSent.AppendData(m_cBlocks.front().GetData(), m_cBlocks.front().GetSize());
    }
  } catch (const std::bad_alloc&) {
    NoMemory(p_tFault);
    return nullptr;
  }
  if (!IsCompressed()) return &m_stSent;
  return Uncompress(p_stRoom, p_tFault) < 0 ? nullptr : &p_stRoom;
}

bool CPacketMachine::IsCompressed() const { return CFieldReader(m_szFrame).IsCompressed(); }

void CPacketMachine::Begin(E_Part p_ePart) {
  m_ePart = p_ePart;
  m_iHave = 0;
}

int CPacketMachine::TakeHeader(T_Fault& p_tFault) {
  const int iBeginLen = s_atFields[CTcpAdaptor::BEGIN_STRING].iWidth;
  if (memcmp(m_szFrame, s_szBegin, static_cast<size_t>(iBeginLen)) != 0) {
    return p_tFault.Set(ADAPT_HEADER, "Unknown BeginString[%.*s]", iBeginLen, m_szFrame);
  }
  if (m_szCopy != nullptr) memcpy(m_szCopy, m_szFrame, CTcpAdaptor::HEADER_SIZE);

  const CFieldReader cHeader(m_szFrame);
  if (m_pFields != nullptr) {
    try {
      ReadHeader(cHeader, *m_pFields);
    } catch (const std::bad_alloc&) {
      return NoMemory(p_tFault);
    }
  }
  if (m_pBody != nullptr) m_pBody->Clear();    // the body of an earlier packet
  Begin(BODY);
  m_iBodyLen = cHeader.Number(CTcpAdaptor::PACKET_LENGTH) - CTcpAdaptor::HEADER_SIZE;
  if (m_iBodyLen < 0) return Cut(m_iBodyLen, p_tFault);    // a hostile header's length is the result of reading it
  return m_iBodyLen > 0 ? 0 : TakeBody(p_tFault);
}

int CPacketMachine::TakeBody(T_Fault& p_tFault) {
  Begin(TRAILER);
  return m_pBody != nullptr && IsCompressed() ? Uncompress(*m_pBody, p_tFault) : 0;
}

int CPacketMachine::TakeTrailer(T_Fault& p_tFault) {
  Begin(COMPLETE);
  const int iComputed = (CAdaptor::CalcCheckSum(m_szFrame, CTcpAdaptor::HEADER_SIZE) + m_iBodySum) % 256;
  const int iReceived = ParseInt32(m_szFrame + CTcpAdaptor::HEADER_SIZE);
  if (iComputed != iReceived) return p_tFault.Set(ADAPT_CHECKSUM, "(M:%d,C:%d)", iComputed, iReceived);
  return 0;
}

// The length that the peer announced is believed up to what deflate can make of the bytes that did come, 1032 for each,
// and one more: so zlib never runs out of room where it would not have with all of it, and its verdict is the same.
int CPacketMachine::Uncompress(CStream& p_stOut, T_Fault& p_tFault) {
  const int iPlainLen = CFieldReader(m_szFrame).Number(CTcpAdaptor::BODY_LENGTH);
  uLongf uLen = 0;
  int iZlib = Z_BUF_ERROR;
  if (iPlainLen >= 0) {
    const long long iMost = 1032LL * m_stSent.GetSize() + 1;
    const int iRoom = static_cast<int>(std::min<long long>(iPlainLen, iMost));
    uLen = static_cast<uLongf>(iRoom);
    try {
      iZlib = uncompress(reinterpret_cast<Bytef*>(p_stOut.GetBuffer(iRoom)), &uLen,
                         reinterpret_cast<Bytef*>(m_stSent.GetData()), static_cast<uLong>(m_stSent.GetSize()));
    } catch (const std::bad_alloc&) {
      return NoMemory(p_tFault);
    }
    p_stOut.ReleaseBuffer(iZlib == Z_OK ? static_cast<int>(uLen) : 0);
  }
  if (iZlib == Z_OK) return 0;
  return p_tFault.Set(ADAPT_COMPRESSION, "ReceiveFrom(%d)(%ld)", iZlib, static_cast<long>(uLen));
}

}    // namespace callorv::detail

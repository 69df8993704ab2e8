// Packets over a TCP connection.
#include "callorv/adaptor/tcp_adaptor.h"

#include <time.h>
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

#include "base/number.h"

namespace {

using callorv::detail::ParseInt32;

struct T_Field {
  int iAt;
  int iWidth;
};
constexpr T_Field FIELD_BEGIN{0, 12};
constexpr T_Field FIELD_PACKET_LEN{12, 10};    // header and body as sent
constexpr T_Field FIELD_SVC_NUM{22, 4};
constexpr T_Field FIELD_MSG_NUM{26, 4};
constexpr T_Field FIELD_EXTRA{30, 10};
constexpr T_Field FIELD_TIME_STAMP{40, 15};
constexpr T_Field FIELD_USER_KEY{55, 20};
constexpr T_Field FIELD_AUX13{75, 13};
constexpr T_Field FIELD_COMPRESSED{88, 1};
constexpr T_Field FIELD_PLAIN_LEN{89, 10};    // body before compression
constexpr T_Field FIELD_AUX8{99, 8};
constexpr T_Field FIELD_AUX21{107, 21};
constexpr T_Field FIELD_CHECKSUM{0, 3};    // in the trailer
static_assert(FIELD_AUX21.iAt + FIELD_AUX21.iWidth == CTcpAdaptor::HEADER_SIZE);
static_assert(FIELD_CHECKSUM.iWidth == CTcpAdaptor::TRAILER_SIZE);

const char s_szBegin[] = "QMX-SSP-V1.0";

// Writes fields as printf would, each at its place, and counts the characters. A number too wide for its field is
// written in full, its end to be covered by the next field; the count tells.
class CFieldWriter {
 public:
  explicit CFieldWriter(char* p_pOut) : m_pOut(p_pOut) {}

  int Count() const { return m_iCount; }

  void Number(T_Field p_tField, int p_iValue) {    // "%0*d"
    char szNumber[12];
    const char* pDigits = szNumber;
    const char* pEnd = callorv::detail::FormatInt(szNumber, p_iValue);
    const int iPad = std::max(p_tField.iWidth - static_cast<int>(pEnd - pDigits), 0);
    m_iCount += iPad + static_cast<int>(pEnd - pDigits);

    char* pOut = m_pOut + p_tField.iAt;
    if (p_iValue < 0) *pOut++ = *pDigits++;
    pOut = std::fill_n(pOut, iPad, '0');
    std::copy(pDigits, pEnd, pOut);
  }

  void Text(T_Field p_tField, const char* p_szText) {    // "%-*.*s"
    const size_t uWidth = static_cast<size_t>(p_tField.iWidth);
    const size_t uLen = strnlen(p_szText, uWidth);
    char* pOut = std::copy_n(p_szText, uLen, m_pOut + p_tField.iAt);
    std::fill_n(pOut, uWidth - uLen, ' ');
    m_iCount += p_tField.iWidth;
  }

 private:
  char* m_pOut;
  int m_iCount = 0;
};

// Reads fields out of bytes that nobody has checked.
class CFieldReader {
 public:
  explicit CFieldReader(const char* p_pIn) : m_pIn(p_pIn) {}

  int Number(T_Field p_tField) const {    // 0 for junk
    char szNumber[12] = {};
    std::copy_n(m_pIn + p_tField.iAt, p_tField.iWidth, szNumber);
    return ParseInt32(szNumber);
  }

  void Text(T_Field p_tField, CString& p_sOut) const {    // with its padding; a NUL ends it
    const char* pText = m_pIn + p_tField.iAt;
    p_sOut.Set(pText, static_cast<int>(strnlen(pText, static_cast<size_t>(p_tField.iWidth))));
  }

 private:
  const char* m_pIn;
};

void SetTimeStamp(CString& p_sOut) {
  const time_t tNow = time(nullptr);
  tm tLocal = {};
  localtime_r(&tNow, &tLocal);
  p_sOut.Format("%04d%02d%02d-%02d%02d%02d", tLocal.tm_year + 1900, tLocal.tm_mon + 1, tLocal.tm_mday, tLocal.tm_hour,
                tLocal.tm_min, tLocal.tm_sec);
}

// Makes room for a whole packet. Throws std::bad_alloc, also for a length that no packet can have.
char* PacketRoom(CStream& p_stPacket, long long p_iBodyLen) {
  const int iFrame = CTcpAdaptor::HEADER_SIZE + CTcpAdaptor::TRAILER_SIZE;
  if (p_iBodyLen > INT_MAX - iFrame) throw std::bad_alloc();
  return p_stPacket.GetBuffer(iFrame + static_cast<int>(p_iBodyLen));
}

int Compress(const CStream& p_stBody, char* p_pOut, long long p_iRoom, int* p_pLen) {
  uLongf uLen = static_cast<uLongf>(p_iRoom);
  const int iRet = compress(reinterpret_cast<Bytef*>(p_pOut), &uLen, reinterpret_cast<Bytef*>(p_stBody.GetData()),
                            static_cast<uLong>(p_stBody.GetSize()));
  *p_pLen = static_cast<int>(uLen);
  return iRet;
}

// p_iPlainLen is what the peer announced. It is believed up to what deflate can make of the bytes that did come, 1032
// for each, and one more: so zlib never runs out of room where it would not have with all of it, and its verdict is
// the same.
int Uncompress(const CStream& p_stSent, int p_iPlainLen, CStream& p_stBody, long* p_pLen) {
  *p_pLen = 0;
  if (p_iPlainLen < 0) return Z_BUF_ERROR;
  const long long iMost = 1032LL * p_stSent.GetSize() + 1;
  const int iRoom = static_cast<int>(std::min<long long>(p_iPlainLen, iMost));
  uLongf uLen = static_cast<uLongf>(iRoom);
  const int iRet = uncompress(reinterpret_cast<Bytef*>(p_stBody.GetBuffer(iRoom)), &uLen,
                              reinterpret_cast<Bytef*>(p_stSent.GetData()), static_cast<uLong>(p_stSent.GetSize()));
  *p_pLen = static_cast<long>(uLen);
  if (iRet == Z_OK) p_stBody.ReleaseBuffer(static_cast<int>(uLen));
  return iRet;
}

}    // namespace

CTcpAdaptor::CTcpAdaptor() : szLastRecvHeader(), szLastSendHeader(), bKeepHeaders(false) {}

CTcpAdaptor::~CTcpAdaptor() {}

int CTcpAdaptor::SendTo(T_PacketInfo* p_pInfo, int p_iTimeOut) {
  if (p_pInfo == nullptr) return Fail(ADAPT_NULL, "(%s)", "SendTo");
  SetTimeStamp(p_pInfo->sTimeStamp);

  CStream stPacket(0, 512);
  const CStream& stBody = p_pInfo->stBody;
  const int iPlainLen = stBody.GetSize();
  int iSentLen = iPlainLen;
  char* pPacket = nullptr;
  try {
    // What zlib may need at worst is 0.1 % and 12 bytes more than the body.
    const long long iRoom = p_pInfo->bCompressed ? (iPlainLen + 12LL) * 1001 / 1000 + 1 : iPlainLen;
    pPacket = PacketRoom(stPacket, iRoom);
    if (!p_pInfo->bCompressed) {
      memcpy(pPacket + HEADER_SIZE, stBody.GetData(), static_cast<size_t>(iPlainLen));
    } else if (const int iZlib = Compress(stBody, pPacket + HEADER_SIZE, iRoom, &iSentLen)) {
      return Fail(ADAPT_COMPRESSION, "(%s)(%d)", "SendTo", iZlib);
    }
  } catch (const std::bad_alloc&) {
    return Fail(ADAPT_MEMORY, "(%s)", "SendTo");
  }

  CFieldWriter cHeader(pPacket);
  cHeader.Text(FIELD_BEGIN, s_szBegin);
  cHeader.Number(FIELD_PACKET_LEN, HEADER_SIZE + iSentLen);
  cHeader.Number(FIELD_SVC_NUM, p_pInfo->iSvcNum);
  cHeader.Number(FIELD_MSG_NUM, p_pInfo->iMsgNum);
  cHeader.Number(FIELD_EXTRA, p_pInfo->iExtra);
  cHeader.Text(FIELD_TIME_STAMP, p_pInfo->sTimeStamp.ToStr());
  cHeader.Text(FIELD_USER_KEY, p_pInfo->sUserKey.ToStr());
  cHeader.Text(FIELD_AUX13, p_pInfo->sAux13.ToStr());
  cHeader.Text(FIELD_COMPRESSED, p_pInfo->bCompressed ? "Y" : "N");
  cHeader.Number(FIELD_PLAIN_LEN, iPlainLen);
  cHeader.Text(FIELD_AUX8, p_pInfo->sAux8.ToStr());
  cHeader.Text(FIELD_AUX21, p_pInfo->sAux21.ToStr());
  if (cHeader.Count() != HEADER_SIZE) {
    return Fail(ADAPT_HEADER, "(%s) size mismatch(%d, %d)[%.*s]", "SendTo", HEADER_SIZE, cHeader.Count(), HEADER_SIZE,
                pPacket);
  }
  const int iCheckSum = CalcCheckSum(pPacket, HEADER_SIZE + iSentLen);
  char* pTrailer = pPacket + HEADER_SIZE + iSentLen;
  CFieldWriter(pTrailer).Number(FIELD_CHECKSUM, iCheckSum);
  if (bKeepHeaders) {
    memcpy(szLastSendHeader, pPacket, HEADER_SIZE);
    memcpy(szLastSendHeader + HEADER_SIZE, pTrailer, TRAILER_SIZE);
  }
  return SendData(pPacket, HEADER_SIZE + iSentLen + TRAILER_SIZE, p_iTimeOut);
}

int CTcpAdaptor::ReceiveFrom(T_PacketInfo* p_pInfo, int p_iTimeOut) {
  if (p_pInfo == nullptr) return Fail(ADAPT_NULL, "p_pInfo");

  char szHeader[HEADER_SIZE + 1] = {};
  int iRet = ReceiveData(szHeader, HEADER_SIZE, p_iTimeOut);
  if (iRet < 0) return iRet;
  if (memcmp(szHeader, s_szBegin, static_cast<size_t>(FIELD_BEGIN.iWidth)) != 0) {
    return Fail(ADAPT_HEADER, "Unknown BeginString[%.*s]", FIELD_BEGIN.iWidth, szHeader);
  }
  if (bKeepHeaders) memcpy(szLastRecvHeader, szHeader, HEADER_SIZE);

  int iBodySum = 0;
  try {
    const CFieldReader cHeader(szHeader);
    const int iBodyLen = cHeader.Number(FIELD_PACKET_LEN) - HEADER_SIZE;    // below 0 for a hostile header
    p_pInfo->iSvcNum = cHeader.Number(FIELD_SVC_NUM);
    p_pInfo->iMsgNum = cHeader.Number(FIELD_MSG_NUM);
    p_pInfo->iExtra = cHeader.Number(FIELD_EXTRA);
    cHeader.Text(FIELD_TIME_STAMP, p_pInfo->sTimeStamp);
    cHeader.Text(FIELD_USER_KEY, p_pInfo->sUserKey);
    p_pInfo->sUserKey.Trim();
    cHeader.Text(FIELD_AUX13, p_pInfo->sAux13);
    p_pInfo->bCompressed = szHeader[FIELD_COMPRESSED.iAt] == 'Y';
    cHeader.Text(FIELD_AUX8, p_pInfo->sAux8);
    cHeader.Text(FIELD_AUX21, p_pInfo->sAux21);

    p_pInfo->stBody.Clear();    // the body of an earlier packet
    CStream stCompressed(0, 512);
    CStream& stSent = p_pInfo->bCompressed ? stCompressed : p_pInfo->stBody;
    iRet = ReceiveBody(stSent, iBodyLen, p_iTimeOut);
    if (iRet < 0) return iRet;
    iBodySum = CalcCheckSum(stSent.GetData(), stSent.GetSize());
    if (p_pInfo->bCompressed) {
      long iLen = 0;
      const int iZlib = Uncompress(stCompressed, cHeader.Number(FIELD_PLAIN_LEN), p_pInfo->stBody, &iLen);
      if (iZlib != Z_OK) return Fail(ADAPT_COMPRESSION, "ReceiveFrom(%d)(%ld)", iZlib, iLen);
    }
  } catch (const std::bad_alloc&) {
    return Fail(ADAPT_MEMORY, "ReceiveFrom");
  }

  char szTrailer[TRAILER_SIZE + 1] = {};
  iRet = ReceiveData(szTrailer, TRAILER_SIZE, p_iTimeOut);
  if (iRet == ADAPT_TIMEOUT) return Fail(ADAPT_CORRUPTED, "uncompleted packet timeout(checksum)");
  if (iRet < 0) return iRet;
  const int iComputed = (CalcCheckSum(szHeader, HEADER_SIZE) + iBodySum) % 256;
  const int iReceived = ParseInt32(szTrailer);
  if (iComputed != iReceived) return Fail(ADAPT_CHECKSUM, "(M:%d,C:%d)", iComputed, iReceived);
  return 0;
}

// Reads p_iLen bytes into p_stOut, which is empty. The room grows with the bytes that really come. A length below 0
// goes to ReceiveData as it is, which hands it back.
int CTcpAdaptor::ReceiveBody(CStream& p_stOut, int p_iLen, int p_iTimeOut) {
  const int iFirstRoom = 64 * 1024;
  int iHave = 0;
  do {
    const int iStep = std::min(p_iLen - iHave, std::max(iHave, iFirstRoom));
    char* pBuf = p_stOut.GetBuffer(iHave + std::max(iStep, 0));
    const int iRet = ReceiveData(pBuf + iHave, iStep, p_iTimeOut);
    if (iRet < 0) p_stOut.Clear();
    if (iRet == ADAPT_TIMEOUT) return Fail(ADAPT_CORRUPTED, "uncompleted packet timeout(body)");
    if (iRet < 0) return iRet;
    iHave += iStep;
    p_stOut.ReleaseBuffer(iHave);
  } while (iHave < p_iLen);
  return 0;
}

// What a packet's bytes mean, worked out without the library's reader.
#include "packet_model.h"

#include <zlib.h>

#include <climits>
#include <vector>

#include "support.h"

namespace {

enum { HEADER = 128, TRAILER = 3, PACKET_LENGTH_AT = 12, COMPRESSED_AT = 88, BODY_LENGTH_AT = 89, LENGTH_WIDTH = 10 };

const std::string s_sBegin = "QMX-SSP-V1.0";

int Number(const std::string& p_sDigits) {
  const long long iValue = strtoll(p_sDigits.c_str(), nullptr, 10);
  return static_cast<int>(std::clamp<long long>(iValue, INT_MIN, INT_MAX));
}

std::string Text(const std::string& p_sField) { return p_sField.c_str(); }    // up to its first NUL

std::string Trimmed(const std::string& p_s) {
  const size_t uFirst = p_s.find_first_not_of(" \t\r\n");
  return uFirst == std::string::npos ? "" : p_s.substr(uFirst, p_s.find_last_not_of(" \t\r\n") - uFirst + 1);
}

int Sum(const std::string& p_s) {
  unsigned uSum = 0;
  for (const unsigned char b : p_s) uSum += b;
  return static_cast<int>(uSum % 256);
}

T_Outcome Failed(int p_iCode, const char* p_szText, const std::string& p_sDetail) {
  T_Outcome tOutcome;
  tOutcome.iCode = p_iCode;
  tOutcome.sText = CFormat("%s(%d)(%s)", p_szText, p_iCode, p_sDetail.c_str()).ToStr();
  return tOutcome;
}

// The bytes end where more are awaited; p_szPart: what for, null for the header.
T_Outcome Short(E_End p_eEnd, const char* p_szPart) {
  if (p_eEnd == END_CLOSED) return Failed(-9, "Socket closed", "OK");
  if (p_eEnd == END_RESET) return Failed(-9, "Socket closed", "(Connection reset by peer)");
  if (p_szPart == nullptr) return Failed(-8, "Socket timeout", "(recv to=0)");
  return Failed(-17, "Packet is corrupted", CFormat("uncompleted packet timeout(%s)", p_szPart).ToStr());
}

}    // namespace

std::string PacketOf(const uint8_t* p_pData, size_t p_uSize) {
  CInput cInput(p_pData, p_uSize);
  const int iBits = cInput.Byte();
  std::string sPacket = cInput.Rest();
  if (sPacket.size() < HEADER) return sPacket;
  if ((iBits & FIX_BEGIN) != 0) sPacket.replace(0, s_sBegin.size(), s_sBegin);
  if ((iBits & COMPRESS_BODY) != 0) {
    const std::string sBody = sPacket.substr(HEADER);
    uLongf uLen = compressBound(static_cast<uLong>(sBody.size()));
    sPacket.resize(HEADER + uLen);
    compress2(reinterpret_cast<Bytef*>(&sPacket[HEADER]), &uLen, reinterpret_cast<const Bytef*>(sBody.data()),
              static_cast<uLong>(sBody.size()), 1);
    sPacket.resize(HEADER + uLen);
    sPacket[COMPRESSED_AT] = 'Y';
    sPacket.replace(BODY_LENGTH_AT, LENGTH_WIDTH, CFormat("%010zu", sBody.size()).ToStr());
  }
  if ((iBits & FIX_LENGTHS) != 0) {
    sPacket.replace(PACKET_LENGTH_AT, LENGTH_WIDTH, CFormat("%010zu", sPacket.size()).ToStr());
  }
  if ((iBits & FIX_CHECKSUM) != 0) sPacket += CFormat("%03d", Sum(sPacket)).ToStr();
  return sPacket;
}

T_Outcome ReadModel(const std::string& p_sPacket, E_End p_eEnd) {
  if (p_sPacket.size() < HEADER) return Short(p_eEnd, nullptr);
  size_t uAt = 0;
  const auto fnField = [&](size_t p_uWidth) {
    uAt += p_uWidth;
    return p_sPacket.substr(uAt - p_uWidth, p_uWidth);
  };
  const std::string sBegin = fnField(12);
  if (sBegin != s_sBegin) {
    return Failed(-15, "Header format is incorrect", "Unknown BeginString[" + Text(sBegin) + "]");
  }
  const long long iBody = static_cast<long long>(Number(fnField(10))) - HEADER;
  T_Outcome tOutcome;
  tOutcome.iSvcNum = Number(fnField(4));
  tOutcome.iMsgNum = Number(fnField(4));
  tOutcome.iExtra = Number(fnField(10));
  tOutcome.sTimeStamp = Text(fnField(15));
  tOutcome.sUserKey = Trimmed(Text(fnField(20)));
  tOutcome.sAux13 = Text(fnField(13));
  tOutcome.bCompressed = fnField(1) == "Y";
  const int iPlain = Number(fnField(10));
  tOutcome.sAux8 = Text(fnField(8));
  tOutcome.sAux21 = Text(fnField(21));

  if (iBody == -8) return Short(END_STALLED, "body");
  if (iBody < 0) {
    tOutcome.iCode = static_cast<int>(iBody);    // and no text
    return tOutcome;
  }
  if (iBody > static_cast<long long>(p_sPacket.size()) - HEADER) return Short(p_eEnd, "body");
  const std::string sSent = fnField(static_cast<size_t>(iBody));
  tOutcome.sBody = sSent;
  if (tOutcome.bCompressed) {
    // More than 1032 bytes for each cannot come out.
    static std::vector<Bytef> s_abPlain;
    s_abPlain.resize(std::max(s_abPlain.size(), 1032 * sSent.size() + 1024));
    uLongf uLen = 0;
    int iZlib = Z_BUF_ERROR;
    if (iPlain >= 0) {
      uLen = std::min(static_cast<uLongf>(iPlain), static_cast<uLongf>(s_abPlain.size()));
      iZlib = uncompress(s_abPlain.data(), &uLen, reinterpret_cast<const Bytef*>(sSent.data()),
                         static_cast<uLong>(sSent.size()));
    }
    if (iZlib != Z_OK) {
      const auto uOut = static_cast<unsigned long>(uLen);
      return Failed(-16, "Compression failed", CFormat("ReceiveFrom(%d)(%lu)", iZlib, uOut).ToStr());
    }
    tOutcome.sBody.assign(reinterpret_cast<const char*>(s_abPlain.data()), uLen);
  }
  const std::string sTrailer = fnField(TRAILER);
  if (sTrailer.size() < TRAILER) return Short(p_eEnd, "checksum");
  const int iSum = Sum(p_sPacket.substr(0, HEADER + sSent.size())), iSays = Number(sTrailer);
  if (iSum != iSays) return Failed(-13, "Checksum is incorrect", CFormat("(M:%d,C:%d)", iSum, iSays).ToStr());
  return tOutcome;
}

void ExpectOutcome(int p_iCode, CAdaptor& p_cAdaptor, const CAdaptor::T_PacketInfo& p_tInfo,
                   const T_Outcome& p_tShould) {
  ExpectSame(p_iCode, p_tShould.iCode, "code");
  ExpectSame(p_cAdaptor.GetLastError(), p_tShould.sText, "text");
  if (p_iCode != 0) return;
  ExpectSame(p_tInfo.iSvcNum, p_tShould.iSvcNum, "service");
  ExpectSame(p_tInfo.iMsgNum, p_tShould.iMsgNum, "message");
  ExpectSame(p_tInfo.iExtra, p_tShould.iExtra, "extra");
  ExpectSame(p_tInfo.sTimeStamp.ToStr(), p_tShould.sTimeStamp, "time stamp");
  ExpectSame(p_tInfo.sUserKey.ToStr(), p_tShould.sUserKey, "user key");
  ExpectSame(p_tInfo.sAux13.ToStr(), p_tShould.sAux13, "aux13");
  ExpectSame(p_tInfo.bCompressed, p_tShould.bCompressed, "compressed");
  ExpectSame(p_tInfo.sAux8.ToStr(), p_tShould.sAux8, "aux8");
  ExpectSame(p_tInfo.sAux21.ToStr(), p_tShould.sAux21, "aux21");
  ExpectSame(std::string_view(p_tInfo.stBody.GetData(), static_cast<size_t>(p_tInfo.stBody.GetSize())), p_tShould.sBody,
             "body");
}

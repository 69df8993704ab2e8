// ReceiveFrom: packets that are right, packets that are cut short, and packets that are meant to harm.
#include <doctest/doctest.h>
#include <sys/resource.h>
#include <zlib.h>

#include <climits>
#include <string>
#include <vector>

#include "open_adaptor.h"
#include "support/child.h"
#include "support/fail_alloc.h"
#include "support/peer.h"

namespace {

using T_PacketInfo = CAdaptor::T_PacketInfo;

const char s_szPlain[] =
    "QMX-SSP-V1.0" "0000000133" "0012" "0120" "0000000007" "20260102-030405" "KEY-1               " "aux thirteen "
    "N" "0000000005" "aux8    " "aux twenty-one       " "hello" "050";

const std::string s_sCompressed =
    "QMX-SSP-V1.0" "0000000141" "0012" "0120" "0000000007" "20260102-030405" "KEY-1               " "aux thirteen "
    "Y" "0000000005" "aux8    " "aux twenty-one       " +
    std::string("\x78\x9c\xcb\x48\xcd\xc9\xc9\x07\x00\x06\x2c\x02\x15", 13) + "254";

std::string Replaced(std::string p_sPacket, size_t p_uAt, const std::string& p_sBytes) {
  return p_sPacket.replace(p_uAt, p_sBytes.size(), p_sBytes);
}

std::string ZLib(const std::string& p_sBytes) {
  std::vector<unsigned char> auZ(compressBound(static_cast<uLong>(p_sBytes.size())));
  uLongf uLen = static_cast<uLongf>(auZ.size());
  compress2(auZ.data(), &uLen, reinterpret_cast<const Bytef*>(p_sBytes.data()), static_cast<uLong>(p_sBytes.size()), 9);
  return std::string(auZ.begin(), auZ.begin() + static_cast<long>(uLen));
}

std::string Digits(size_t p_uNumber) { return std::to_string(10000000000 + p_uNumber).substr(1); }

// A packet with these bytes for its body; p_sPlainLen is the text of the uncompressed length.
std::string Packet(char p_cFlag, const std::string& p_sSent, const std::string& p_sPlainLen) {
  return WithCheckSum("QMX-SSP-V1.0" + Digits(128 + p_sSent.size()) + "0012" "0120" "0000000007" "20260102-030405"
                      "KEY-1               " "aux thirteen " + p_cFlag + p_sPlainLen + "aux8    "
                      "aux twenty-one       " + p_sSent);
}

// A connection to a peer that sends some bytes and then closes or stalls.
class CExchange {
 public:
  enum E_Then { CLOSE, STALL };

  CExchange(const std::string& p_sBytes, E_Then p_eThen)
      : m_cPeer([p_sBytes, p_eThen](int p_iSock) {
          WriteAll(p_iSock, p_sBytes);
          if (p_eThen == STALL) WaitForEnd(p_iSock);
        }) {
    REQUIRE(cAdaptor.Connect("127.0.0.1", m_cPeer.Port()) >= 0);
    // A stalled peer's last byte has come before the clock starts, so no time-out at all is needed.
    if (p_eThen == STALL) cAdaptor.AwaitBytes(static_cast<int>(p_sBytes.size()));
    iRet = cAdaptor.ReceiveFrom(&tInfo, p_eThen == STALL ? 0 : 20);
  }

  COpenAdaptor cAdaptor;
  T_PacketInfo tInfo;
  int iRet;

 private:
  CPeer m_cPeer;
};

}    // namespace

TEST_CASE("ReceiveFrom: every field") {
  for (const std::string& sPacket : {std::string(s_szPlain), s_sCompressed}) {
    CExchange cExchange(sPacket, CExchange::CLOSE);
    CHECK(cExchange.iRet == 0);
    CHECK(cExchange.cAdaptor.Error() == "");
    CHECK(cExchange.tInfo.iSvcNum == 12);
    CHECK(cExchange.tInfo.iMsgNum == 120);
    CHECK(cExchange.tInfo.iExtra == 7);
    CHECK(cExchange.tInfo.sTimeStamp == "20260102-030405");
    CHECK(cExchange.tInfo.sUserKey == "KEY-1");    // the only one that is trimmed
    CHECK(cExchange.tInfo.sAux13 == "aux thirteen ");
    CHECK(cExchange.tInfo.bCompressed == (sPacket == s_sCompressed));
    CHECK(cExchange.tInfo.sAux8 == "aux8    ");
    CHECK(cExchange.tInfo.sAux21 == "aux twenty-one       ");
    CHECK(Bytes(cExchange.tInfo.stBody) == "hello");
    CHECK(cExchange.tInfo.stBody.GetData()[5] == 0);
  }
}

TEST_CASE("ReceiveFrom: what numbers and texts may look like") {
  const std::string sTrailerless =
      "QMX-SSP-V1.0" " +131     " "-007" " 42x" "9999999999" + std::string("\0" "0260102-030405", 15) +
      " \tAB CD \r\n          " + std::string("aux\0thirteen!", 13) + "y" "junk......" +
      std::string("\0\0\0\0\0\0\0\0", 8) +
      "\xE4\xF6\xFC                  " "abc";
  REQUIRE(sTrailerless.size() == 131);
  CExchange cExchange(WithCheckSum(sTrailerless), CExchange::CLOSE);
  CHECK(cExchange.iRet == 0);
  CHECK(cExchange.tInfo.iSvcNum == -7);
  CHECK(cExchange.tInfo.iMsgNum == 42);
  CHECK(cExchange.tInfo.iExtra == INT_MAX);
  CHECK(cExchange.tInfo.sTimeStamp.IsEmpty());
  CHECK(cExchange.tInfo.sUserKey == "AB CD");
  CHECK(cExchange.tInfo.sAux13 == "aux");
  CHECK(cExchange.tInfo.sAux13.GetSize() == 3);    // a NUL ends a text
  CHECK_FALSE(cExchange.tInfo.bCompressed);    // only "Y" is
  CHECK(cExchange.tInfo.sAux8.IsEmpty());
  CHECK(cExchange.tInfo.sAux21 == "\xE4\xF6\xFC                  ");
  CHECK(Bytes(cExchange.tInfo.stBody) == "abc");
}

TEST_CASE("ReceiveFrom: bodies of every size") {
  for (const size_t uLen : {0u, 1u, 3u, 65535u, 65536u, 65537u, 131072u, 131073u, 1000000u}) {
    CAPTURE(uLen);
    const std::string sBody = Noise(uLen);
    CExchange cPlain(Packet('N', sBody, Digits(uLen)), CExchange::CLOSE);
    CHECK(cPlain.iRet == 0);
    CHECK((Bytes(cPlain.tInfo.stBody) == sBody));
    CHECK(cPlain.tInfo.stBody.GetData()[uLen] == 0);
    CExchange cCompressed(Packet('Y', ZLib(sBody), Digits(uLen)), CExchange::CLOSE);
    CHECK(cCompressed.iRet == 0);
    CHECK((Bytes(cCompressed.tInfo.stBody) == sBody));
    CHECK(cCompressed.tInfo.stBody.GetData()[uLen] == 0);
  }
}

TEST_CASE("ReceiveFrom: packets one behind the other, into one record") {
  const std::string sFirst = s_szPlain;
  const std::string sBad = Replaced(s_szPlain, 133, "051");
  const std::string sEmpty = Packet('N', "", "0000000000");
  const std::string sNoZLib = Packet('Y', "hello", "0000000005").substr(0, 133);    // its trailer would not be read
  const std::string sAll = sFirst + s_sCompressed + sBad + sNoZLib + sFirst + sEmpty + sFirst;
  CPeer cPeer([&](int p_iSock) { WriteAll(p_iSock, sAll); });
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  T_PacketInfo tInfo;
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == 0);
  CHECK(Bytes(tInfo.stBody) == "hello");
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == 0);
  CHECK(tInfo.bCompressed);
  CHECK(Bytes(tInfo.stBody) == "hello");
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == -13);
  CHECK(cAdaptor.Error() == "Checksum is incorrect(-13)((M:50,C:51))");
  CHECK(Bytes(tInfo.stBody) == "hello");
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == -16);
  CHECK(cAdaptor.Error() == "Compression failed(-16)(ReceiveFrom(-3)(0))");
  CHECK(tInfo.stBody.GetSize() == 0);    // no body rather than that of the packet before
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == 0);
  CHECK(Bytes(tInfo.stBody) == "hello");
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == 0);
  CHECK(tInfo.stBody.GetSize() == 0);
  CHECK(std::string(tInfo.stBody.GetData()) == "");
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == 0);
  CHECK(Bytes(tInfo.stBody) == "hello");
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == -9);
  CHECK(cAdaptor.Error() == "Socket closed(-9)(OK)");
}

TEST_CASE("ReceiveFrom: null, and no connection") {
  COpenAdaptor cAdaptor;
  CHECK(cAdaptor.ReceiveFrom(nullptr, 0) == -2);
  CHECK(cAdaptor.Error() == "Parameter is NULL(-2)(p_pInfo)");
  T_PacketInfo tInfo;
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 0) == -12);
  CHECK(cAdaptor.Error() == "Socket not connected(-12)((ReceiveData))");
}

TEST_CASE("ReceiveFrom: a negative time-out is the adaptor's own") {
  CPeer cPeer(WaitForEnd);
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  cAdaptor.iRecvTimeOut = 0;
  T_PacketInfo tInfo;
  CHECK(cAdaptor.ReceiveFrom(&tInfo, -1) == -8);
  CHECK(cAdaptor.Error() == "Socket timeout(-8)((recv to=0))");
}

TEST_CASE("ReceiveFrom: another protocol") {
  struct T_Row { std::string sBegin; const char* szText; };
  const T_Row atRow[] = {
      {"XYZ-SSP-V2.0", "Header format is incorrect(-15)(Unknown BeginString[XYZ-SSP-V2.0])"},
      {"QMX-SSP-V1.1", "Header format is incorrect(-15)(Unknown BeginString[QMX-SSP-V1.1])"},
      {"qMX-SSP-V1.0", "Header format is incorrect(-15)(Unknown BeginString[qMX-SSP-V1.0])"},
      {"%s%n%s%n%s%n", "Header format is incorrect(-15)(Unknown BeginString[%s%n%s%n%s%n])"},
      {std::string("AB\0-SSP-V1.0", 12), "Header format is incorrect(-15)(Unknown BeginString[AB])"},
      {std::string("\0MX-SSP-V1.0", 12), "Header format is incorrect(-15)(Unknown BeginString[])"},
  };
  for (const T_Row& tRow : atRow) {
    CAPTURE(tRow.szText);
    CExchange cExchange(Replaced(s_szPlain, 0, tRow.sBegin), CExchange::CLOSE);
    CHECK(cExchange.iRet == -15);
    CHECK(cExchange.cAdaptor.Error() == tRow.szText);
    CHECK(cExchange.tInfo.iSvcNum == 0);    // nothing was read from it
    CHECK(cExchange.tInfo.sUserKey == "");
  }
}

TEST_CASE("ReceiveFrom: the trailer") {
  struct T_Row { const char* szTrailer; int iCode; const char* szText; };
  static const T_Row s_atRow[] = {
      {"050", 0, ""},
      {" 50", 0, ""},
      {"50 ", 0, ""},
      {"50x", 0, ""},
      {"+50", 0, ""},
      {"051", -13, "Checksum is incorrect(-13)((M:50,C:51))"},
      {"000", -13, "Checksum is incorrect(-13)((M:50,C:0))"},
      {"306", -13, "Checksum is incorrect(-13)((M:50,C:306))"},
      {"-50", -13, "Checksum is incorrect(-13)((M:50,C:-50))"},
      {"abc", -13, "Checksum is incorrect(-13)((M:50,C:0))"},
      {"   ", -13, "Checksum is incorrect(-13)((M:50,C:0))"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szTrailer);
    CExchange cExchange(Replaced(s_szPlain, 133, tRow.szTrailer), CExchange::CLOSE);
    CHECK(cExchange.iRet == tRow.iCode);
    CHECK(cExchange.cAdaptor.Error() == tRow.szText);
    CHECK(Bytes(cExchange.tInfo.stBody) == "hello");
  }
}

TEST_CASE("ReceiveFrom: a byte changed anywhere shows") {
  for (size_t i = 12; i < 133; ++i) {
    if (i >= 12 && i < 22) continue;    // another length is another packet
    CAPTURE(i);
    std::string sPacket = s_szPlain;
    sPacket[i] = static_cast<char>(sPacket[i] + 1);
    CExchange cExchange(sPacket, CExchange::CLOSE);
    CHECK(cExchange.iRet == -13);
    CHECK(cExchange.cAdaptor.Error() == "Checksum is incorrect(-13)((M:51,C:50))");
  }
}

TEST_CASE("ReceiveFrom: the checksum of a compressed packet is that of the bytes as sent") {
  CExchange cExchange(Replaced(s_sCompressed, 141, "255"), CExchange::CLOSE);
  CHECK(cExchange.iRet == -13);
  CHECK(cExchange.cAdaptor.Error() == "Checksum is incorrect(-13)((M:254,C:255))");
  CHECK(Bytes(cExchange.tInfo.stBody) == "hello");
}

TEST_CASE("ReceiveFrom: the peer stalls after each byte") {
  for (const std::string& sPacket : {std::string(s_szPlain), s_sCompressed}) {
    for (size_t i = 0; i < sPacket.size(); ++i) {
      CAPTURE(i);
      CExchange cExchange(sPacket.substr(0, i), CExchange::STALL);
      if (i < 128) {
        CHECK(cExchange.iRet == -8);
        CHECK(cExchange.cAdaptor.Error() == "Socket timeout(-8)((recv to=0))");
      } else if (i < sPacket.size() - 3) {
        CHECK(cExchange.iRet == -17);
        CHECK(cExchange.cAdaptor.Error() == "Packet is corrupted(-17)(uncompleted packet timeout(body))");
        CHECK(cExchange.tInfo.stBody.GetSize() == 0);
      } else {
        CHECK(cExchange.iRet == -17);
        CHECK(cExchange.cAdaptor.Error() == "Packet is corrupted(-17)(uncompleted packet timeout(checksum))");
        CHECK(Bytes(cExchange.tInfo.stBody) == "hello");
      }
      CHECK(cExchange.tInfo.iSvcNum == (i < 128 ? 0 : 12));
    }
  }
}

TEST_CASE("ReceiveFrom: the peer closes after each byte") {
  for (const std::string& sPacket : {std::string(s_szPlain), s_sCompressed}) {
    for (size_t i = 0; i < sPacket.size(); ++i) {
      CAPTURE(i);
      CExchange cExchange(sPacket.substr(0, i), CExchange::CLOSE);
      CHECK(cExchange.iRet == -9);
      CHECK(cExchange.cAdaptor.Error() == "Socket closed(-9)(OK)");
    }
  }
}

TEST_CASE("ReceiveFrom: a packet length that is a lie") {
  struct T_Row { const char* szLength; int iCode; const char* szText; };
  static const char s_szBody[] = "Packet is corrupted(-17)(uncompleted packet timeout(body))";
  static const char s_szCheckSum[] = "Packet is corrupted(-17)(uncompleted packet timeout(checksum))";
  static const T_Row s_atRow[] = {
      {"2147483647", -17, s_szBody},   {"9999999999", -17, s_szBody},   {"2147483648", -17, s_szBody},
      {"4294967424", -17, s_szBody},   {"0000065672", -17, s_szBody},   {"0000000137", -17, s_szBody},
      {"0000000136", -17, s_szCheckSum},
      {"0000000127", -1, ""},          {"0000000126", -2, ""},          {"0000000121", -7, ""},
      {"0000000120", -17, s_szBody},   {"0000000119", -9, ""},          {"0000000000", -128, ""},
      {"-000000001", -129, ""},        {"-000000008", -136, ""},        {"-999999999", -1000000127, ""},
      {"-2147483648", -214748492, ""},    // its last digit belongs to the next field
      {"          ", -128, ""},        {"abcdefghij", -128, ""},        {"0x00000085", -128, ""},
      {"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", -128, ""},
      {"1 33      ", -127, ""},        {"- 00000001", -128, ""},        {"--00000001", -128, ""},
  };
  for (const char* szFlag : {"N", "Y"}) {
    for (const T_Row& tRow : s_atRow) {
      CAPTURE(szFlag);
      CAPTURE(tRow.szLength);
      const std::string sPacket = Replaced(s_szPlain, 88, szFlag);
      if (tRow.szText == s_szCheckSum && *szFlag == 'Y') continue;    // zlib speaks first
      CExchange cExchange(Replaced(sPacket, 12, tRow.szLength), CExchange::STALL);
      CHECK(cExchange.iRet == tRow.iCode);
      CHECK(cExchange.cAdaptor.Error() == tRow.szText);
      CHECK(cExchange.tInfo.stBody.GetCapacity() <= 65536);
      if (tRow.iCode != -17 || tRow.szText == s_szBody) CHECK(cExchange.tInfo.stBody.GetSize() == 0);
    }
    for (const char* szLength : {"2147483647", "9999999999", "0000000137"}) {
      CAPTURE(szLength);
      CExchange cExchange(Replaced(Replaced(s_szPlain, 88, szFlag), 12, szLength), CExchange::CLOSE);
      CHECK(cExchange.iRet == -9);
      CHECK(cExchange.cAdaptor.Error() == "Socket closed(-9)(OK)");
    }
  }
}

TEST_CASE("ReceiveFrom: memory follows what comes, not what is announced") {
  for (const char cFlag : {'N', 'Y'}) {
    CAPTURE(cFlag);
    const std::string sHeader = Replaced(Packet(cFlag, "", "2147483647"), 12, "2147483647").substr(0, 128);
    CPeer cPeer([&](int p_iSock) { WriteAll(p_iSock, sHeader + "abc"); });
    COpenAdaptor cAdaptor;
    REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
    T_PacketInfo tInfo;
    int iRet = 0;
    CFailAlloc cCount;
    CHECK_FALSE(cCount.Run([&] { iRet = cAdaptor.ReceiveFrom(&tInfo, 20); }));
    CHECK(iRet == -9);
    CHECK(cCount.GetBytes() < 80000);
  }
}

TEST_CASE("ReceiveFrom: room grows with the body") {
  const std::string sBody = Noise(1000000);
  CPeer cPeer([&](int p_iSock) { WriteAll(p_iSock, Replaced(Packet('N', sBody, Digits(1000000)), 12, "2147483647")); });
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  T_PacketInfo tInfo;
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 20) == -9);
  CHECK(tInfo.stBody.GetSize() == 0);
  CHECK(tInfo.stBody.GetCapacity() >= 1000000);
  CHECK(tInfo.stBody.GetCapacity() <= 2097152);
  CExchange cSmall(Packet('N', "hello", "0000000005"), CExchange::CLOSE);
  CHECK(cSmall.tInfo.stBody.GetCapacity() < 1024);
}

TEST_CASE("ReceiveFrom: an uncompressed length that is a lie") {
  struct T_Row { const char* szLength; int iCode; const char* szText; };
  static const T_Row s_atRow[] = {
      {"0000000005", 0, ""},
      {"0000000006", 0, ""},
      {"2147483647", 0, ""},
      {"9999999999", 0, ""},
      {"0000000004", -16, "Compression failed(-16)(ReceiveFrom(-5)(4))"},
      {"0000000001", -16, "Compression failed(-16)(ReceiveFrom(-5)(1))"},
      {"0000000000", -16, "Compression failed(-16)(ReceiveFrom(-3)(0))"},
      {"   garbage", -16, "Compression failed(-16)(ReceiveFrom(-3)(0))"},
      {"-000000001", -16, "Compression failed(-16)(ReceiveFrom(-5)(0))"},
      {"-999999999", -16, "Compression failed(-16)(ReceiveFrom(-5)(0))"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szLength);
    CExchange cExchange(Packet('Y', ZLib("hello"), tRow.szLength), CExchange::CLOSE);
    CHECK(cExchange.iRet == tRow.iCode);
    CHECK(cExchange.cAdaptor.Error() == tRow.szText);
    CHECK(Bytes(cExchange.tInfo.stBody) == (tRow.iCode == 0 ? "hello" : ""));
    CHECK(cExchange.tInfo.stBody.GetCapacity() < 32768);
  }
}

TEST_CASE("ReceiveFrom: compressed bytes that are wrong") {
  const std::string sZ = ZLib("hello");
  struct T_Row { std::string sSent; const char* szText; };
  const T_Row atRow[] = {
      {"", "Compression failed(-16)(ReceiveFrom(-3)(0))"},
      {"hello", "Compression failed(-16)(ReceiveFrom(-3)(0))"},
      {Replaced(sZ, 0, "\x79"), "Compression failed(-16)(ReceiveFrom(-3)(0))"},
      {sZ.substr(0, 2), "Compression failed(-16)(ReceiveFrom(-3)(0))"},
      {sZ.substr(0, sZ.size() - 1), "Compression failed(-16)(ReceiveFrom(-3)(5))"},
      {Replaced(sZ, sZ.size() - 1, "\x16"), "Compression failed(-16)(ReceiveFrom(-3)(5))"},
      {std::string("\x78\x20\x00\x00\x00\x01", 6), "Compression failed(-16)(ReceiveFrom(-3)(0))"},    // a dictionary
  };
  for (const T_Row& tRow : atRow) {
    CAPTURE(tRow.szText);
    CExchange cExchange(Packet('Y', tRow.sSent, "0000000100"), CExchange::CLOSE);
    CHECK(cExchange.iRet == -16);
    CHECK(cExchange.cAdaptor.Error() == tRow.szText);
    CHECK(cExchange.tInfo.stBody.GetSize() == 0);
    CHECK(std::string(cExchange.tInfo.stBody.GetData()) == "");
  }
  CExchange cMore(Packet('Y', sZ + "more", "0000000005"), CExchange::CLOSE);    // zlib does not look behind its end
  CHECK(cMore.iRet == 0);
  CHECK(Bytes(cMore.tInfo.stBody) == "hello");
}

TEST_CASE("ReceiveFrom: the longest expansion of deflate fits, and each part of it is judged as with all the room") {
  const std::string sPlain(1000000, '\0');
  const std::string sZ = ZLib(sPlain);
  REQUIRE(sPlain.size() / sZ.size() > 1000);
  CExchange cWhole(Packet('Y', sZ, "2147483647"), CExchange::CLOSE);
  CHECK(cWhole.iRet == 0);
  CHECK((Bytes(cWhole.tInfo.stBody) == sPlain));
  std::vector<unsigned char> auRoom(2000000);
  for (size_t i = 0; i < sZ.size(); i += i < 40 || i + 40 > sZ.size() ? 1 : 37) {
    CAPTURE(i);
    uLongf uLen = static_cast<uLongf>(auRoom.size());
    const Bytef* pZ = reinterpret_cast<const Bytef*>(sZ.data());
    const int iZlib = uncompress(auRoom.data(), &uLen, pZ, static_cast<uLong>(i));
    CExchange cExchange(Packet('Y', sZ.substr(0, i), "2147483647"), CExchange::CLOSE);
    CHECK(cExchange.iRet == -16);
    CHECK(cExchange.cAdaptor.Error() ==
          "Compression failed(-16)(ReceiveFrom(" + std::to_string(iZlib) + ")(" + std::to_string(uLen) + "))");
  }
}

TEST_CASE("ReceiveFrom keeps the header only with the trace switch on") {
  CPeer cPeer([](int p_iSock) { WriteAll(p_iSock, s_szPlain + s_sCompressed + s_szPlain + "XYZ" + s_szPlain); });
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  T_PacketInfo tInfo;
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == 0);
  CHECK(std::string(cAdaptor.GetLastRecvHeader()) == "");
  cAdaptor.KeepHeaders(true);
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == 0);
  CHECK(cAdaptor.GetLastRecvHeader() == s_sCompressed.substr(0, 128));
  cAdaptor.KeepHeaders(false);
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == 0);
  CHECK(cAdaptor.GetLastRecvHeader() == s_sCompressed.substr(0, 128));
  cAdaptor.KeepHeaders(true);
  CHECK(cAdaptor.ReceiveFrom(&tInfo, 5) == -15);    // not a header
  CHECK(cAdaptor.GetLastRecvHeader() == s_sCompressed.substr(0, 128));
  CHECK(std::string(cAdaptor.GetLastSendHeader()) == "");
}

TEST_CASE("ReceiveFrom without memory") {
  const std::string sLong = Packet('N', Noise(200000), "0000200000");
  for (const std::string& sPacket : {std::string(s_szPlain), s_sCompressed, sLong}) {
    CAPTURE(sPacket.size());
    const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
      CPeer cPeer([&](int p_iSock) { WriteAll(p_iSock, sPacket); });
      COpenAdaptor cAdaptor;
      REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
      T_PacketInfo tInfo;
      int iRet = 1;
      CHECK_FALSE(p_cFail.Run([&] { iRet = cAdaptor.ReceiveFrom(&tInfo, 5); }));
      CHECK(iRet == (p_cFail.HasFailed() ? -1 : 0));
      CHECK(cAdaptor.Error() == (p_cFail.HasFailed() ? "Memory error(-1)(ReceiveFrom)" : ""));
    });
    CHECK(iFailures >= 2);    // a long text and the body
  }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)    // their own memory would count
TEST_CASE("ReceiveFrom: a peer that sends 131 bytes costs no memory to speak of") {
  const std::string sSeen = InChild([] {
    std::string sCodes;
    rusage tBefore, tAfter;
    getrusage(RUSAGE_SELF, &tBefore);
    for (const char cFlag : {'N', 'Y'}) {
      for (const char* szLength : {"2147483647", "9999999999", "0000000131"}) {
        CPeer cPeer([&](int p_iSock) { WriteAll(p_iSock, Replaced(Packet(cFlag, "", "9999999999"), 12, szLength)); });
        COpenAdaptor cAdaptor;
        cAdaptor.Connect("127.0.0.1", cPeer.Port());
        T_PacketInfo tInfo;
        sCodes += std::to_string(cAdaptor.ReceiveFrom(&tInfo, 20)) + " ";
      }
    }
    getrusage(RUSAGE_SELF, &tAfter);
    return sCodes + (tAfter.ru_maxrss - tBefore.ru_maxrss < 8192 ? "small" : "large");
  });
  CHECK(sSeen == "-9 -9 -9 -9 -9 -16 small");
}
#endif

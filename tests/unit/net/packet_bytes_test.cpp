// Packets in memory: BuildPacket, ParsePacket and the table of the header's fields.
#include <doctest/doctest.h>

#include <climits>
#include <string>

#include "callorv/net/tcp_adaptor.h"

namespace {

using T_PacketInfo = CAdaptor::T_PacketInfo;

// A packet of service 1201, message 3, body "<msg/>", whose time stamp is replaced by a fixed one.
const char s_szPacket[] =
    "QMX-SSP-V1.0" "0000000134" "1201" "0003" "0000000007" "20260131-235959" "USERKEY1            " "aux13        " "N"
    "0000000006" "aux8    " "aux21                " "<msg/>" "228";

std::string Build(T_PacketInfo& p_tInfo) {
  CTcpAdaptor cAdaptor;
  CStream stOut(0, 512);
  REQUIRE(cAdaptor.BuildPacket(&p_tInfo, stOut) == 0);
  return std::string(stOut.GetData(), static_cast<size_t>(stOut.GetSize()));
}

int Parse(const std::string& p_sPacket, T_PacketInfo& p_tInfo, std::string& p_sError) {
  CTcpAdaptor cAdaptor;
  const int iRet = cAdaptor.ParsePacket(p_sPacket.data(), static_cast<int>(p_sPacket.size()), &p_tInfo);
  p_sError = cAdaptor.GetLastError();
  return iRet;
}

void SetBody(T_PacketInfo& p_tInfo, const std::string& p_sBody) {
  p_tInfo.stBody.AppendData(p_sBody.data(), static_cast<int>(p_sBody.size()));
}

}    // namespace

TEST_CASE("ParsePacket reads every field, and bytes behind the packet are not looked at") {
  T_PacketInfo tInfo;
  std::string sError;
  REQUIRE(Parse(std::string(s_szPacket) + "QMX", tInfo, sError) == 0);
  CHECK(sError == "");
  CHECK(tInfo.iSvcNum == 1201);
  CHECK(tInfo.iMsgNum == 3);
  CHECK(tInfo.iExtra == 7);
  CHECK(std::string(tInfo.sTimeStamp.ToStr()) == "20260131-235959");
  CHECK(std::string(tInfo.sUserKey.ToStr()) == "USERKEY1");
  CHECK(std::string(tInfo.sAux13.ToStr()) == "aux13        ");
  CHECK_FALSE(tInfo.bCompressed);
  CHECK(std::string(tInfo.sAux8.ToStr()) == "aux8    ");
  CHECK(std::string(tInfo.sAux21.ToStr()) == "aux21                ");
  CHECK(std::string(tInfo.stBody.GetData()) == "<msg/>");
}

TEST_CASE("ParsePacket: a packet that is cut short at any byte") {
  const std::string sPacket = s_szPacket;
  for (size_t i = 0; i < sPacket.size(); ++i) {
    CAPTURE(i);
    T_PacketInfo tInfo;
    std::string sError;
    CHECK(Parse(sPacket.substr(0, i), tInfo, sError) == -9);
    CHECK(sError == "Socket closed(-9)(OK)");
  }
}

TEST_CASE("ParsePacket fails as ReceiveFrom does") {
  struct T_Row { size_t iAt; const char* szBytes; int iCode; const char* szText; };
  static const T_Row s_atRow[] = {
      {0, "XYZ", -15, "Header format is incorrect(-15)(Unknown BeginString[XYZ-SSP-V1.0])"},
      {134, "229", -13, "Checksum is incorrect(-13)((M:228,C:229))"},
      {88, "Y", -16, "Compression failed(-16)(ReceiveFrom(-3)(0))"},
      {12, "0000000127", -1, ""},
      {12, "0000000120", -17, "Packet is corrupted(-17)(uncompleted packet timeout(body))"},
      {12, "2147483647", -9, "Socket closed(-9)(OK)"},
      {12, "9999999999", -9, "Socket closed(-9)(OK)"},
      {12, "-000000001", -129, ""},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szBytes);
    std::string sPacket = s_szPacket;
    sPacket.replace(tRow.iAt, std::string(tRow.szBytes).size(), tRow.szBytes);
    T_PacketInfo tInfo;
    std::string sError;
    CHECK(Parse(sPacket, tInfo, sError) == tRow.iCode);
    CHECK(sError == tRow.szText);
  }
}

TEST_CASE("ParsePacket and BuildPacket refuse null") {
  CTcpAdaptor cAdaptor;
  CHECK(cAdaptor.ParsePacket("", 0, nullptr) == -2);
  CHECK(std::string(cAdaptor.GetLastError()) == "Parameter is NULL(-2)(p_pInfo)");
  CStream stOut(0, 512);
  CHECK(cAdaptor.BuildPacket(nullptr, stOut) == -2);
  CHECK(std::string(cAdaptor.GetLastError()) == "Parameter is NULL(-2)((SendTo))");
}

TEST_CASE("BuildPacket writes the bytes of the format") {
  T_PacketInfo tInfo;
  tInfo.iSvcNum = 1201;
  tInfo.iMsgNum = 3;
  tInfo.iExtra = 7;
  tInfo.sUserKey = "USERKEY1";
  tInfo.sAux13 = "aux13";
  tInfo.sAux8 = "aux8";
  tInfo.sAux21 = "aux21";
  SetBody(tInfo, "<msg/>");
  std::string sPacket = Build(tInfo);
  REQUIRE(sPacket.size() == 137);
  CHECK(sPacket.substr(40, 15) == tInfo.sTimeStamp.ToStr());
  CHECK(sPacket[48] == '-');
  sPacket.replace(40, 15, "20260131-235959");
  CHECK(sPacket.substr(0, 134) == std::string(s_szPacket).substr(0, 134));
}

TEST_CASE("BuildPacket replaces what the stream held, and leaves it empty when it fails") {
  CTcpAdaptor cAdaptor;
  CStream stOut(0, 512);
  stOut.AppendData("old", 3);
  T_PacketInfo tInfo;
  REQUIRE(cAdaptor.BuildPacket(&tInfo, stOut) == 0);
  CHECK(stOut.GetSize() == 131);
  CHECK(std::string(stOut.GetData(), 12) == "QMX-SSP-V1.0");
  tInfo.iSvcNum = 10000;
  CHECK(cAdaptor.BuildPacket(&tInfo, stOut) == -15);
  const std::string sExpected = "Header format is incorrect(-15)((SendTo) size mismatch(128, 129)[QMX-SSP-V1.00000000128";
  CHECK(std::string(cAdaptor.GetLastError()).substr(0, sExpected.size()) == sExpected);
  CHECK(stOut.GetSize() == 0);
  CHECK(std::string(stOut.GetData()) == "");
}

TEST_CASE("ParsePacket gives back what BuildPacket was given") {
  for (const bool bCompressed : {false, true}) {
    for (const int iSize : {0, 1, 1024, 70000}) {
      CAPTURE(bCompressed);
      CAPTURE(iSize);
      T_PacketInfo tIn;
      tIn.bCompressed = bCompressed;
      std::string sBody;
      for (int i = 0; i < iSize; ++i) sBody += static_cast<char>(i * 7 + i / 256);
      SetBody(tIn, sBody);
      T_PacketInfo tOut;
      std::string sError;
      REQUIRE(Parse(Build(tIn), tOut, sError) == 0);
      CHECK(tOut.bCompressed == bCompressed);
      CHECK(std::string(tOut.stBody.GetData(), static_cast<size_t>(tOut.stBody.GetSize())) == sBody);
    }
  }
}

TEST_CASE("the trace switch keeps the headers of packets in memory too") {
  CTcpAdaptor cAdaptor;
  cAdaptor.KeepHeaders(true);
  CStream stOut(0, 512);
  T_PacketInfo tInfo;
  REQUIRE(cAdaptor.BuildPacket(&tInfo, stOut) == 0);
  CHECK(std::string(cAdaptor.GetLastSendHeader()) == stOut.GetData());
  REQUIRE(cAdaptor.ParsePacket(stOut.GetData(), stOut.GetSize(), &tInfo) == 0);
  CHECK(std::string(cAdaptor.GetLastRecvHeader()) == std::string(stOut.GetData(), 128));
}

TEST_CASE("the table of the header's fields") {
  struct T_Row { const char* szName; int iAt; int iWidth; };
  static const T_Row s_atRow[] = {{"begin string", 0, 12}, {"packet length", 12, 10}, {"service", 22, 4},
                                  {"message", 26, 4},      {"extra", 30, 10},         {"time stamp", 40, 15},
                                  {"user key", 55, 20},    {"aux13", 75, 13},         {"compressed", 88, 1},
                                  {"body length", 89, 10}, {"aux8", 99, 8},           {"aux21", 107, 21}};
  CHECK(CTcpAdaptor::FIELDS == 12);
  for (int i = 0; i < CTcpAdaptor::FIELDS; ++i) {
    CAPTURE(i);
    const CTcpAdaptor::T_Field* pField = CTcpAdaptor::GetField(i);
    REQUIRE(pField != nullptr);
    CHECK(std::string(pField->szName) == s_atRow[i].szName);
    CHECK(pField->iAt == s_atRow[i].iAt);
    CHECK(pField->iWidth == s_atRow[i].iWidth);
  }
  CHECK(CTcpAdaptor::GetField(CTcpAdaptor::COMPRESSED)->iAt == 88);
  for (const int i : {-1, 12, INT_MAX, INT_MIN}) CHECK(CTcpAdaptor::GetField(i) == nullptr);
  CHECK(std::string(CTcpAdaptor::GetBeginString()) == "QMX-SSP-V1.0");
}

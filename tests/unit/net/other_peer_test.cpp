// Exchanges with support/peer.py, which knows the packet format on its own.
#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "open_adaptor.h"
#include "support/child.h"

namespace {

using T_PacketInfo = CAdaptor::T_PacketInfo;

class COtherPeer {
 public:
  explicit COtherPeer(const std::vector<std::string>& p_asOptions) : m_cProgram(Args(p_asOptions)) {
    m_iPort = std::stoi(m_cProgram.ReadLine());
  }

  int Port() const { return m_iPort; }
  std::string Report() { return m_cProgram.ReadLine(); }    // of the next connection

 private:
  CProgram m_cProgram;
  int m_iPort;

  static std::vector<std::string> Args(const std::vector<std::string>& p_asOptions) {
    std::vector<std::string> asArgs = {TEST_PYTHON, TEST_SUPPORT_DIR "/peer.py"};
    asArgs.insert(asArgs.end(), p_asOptions.begin(), p_asOptions.end());
    return asArgs;
  }
};

// A request and the answer to it.
struct T_Exchange {
  COpenAdaptor cAdaptor;
  T_PacketInfo tIn;
  T_PacketInfo tOut;
  int iSent = 1;
  int iReceived = 1;

  explicit T_Exchange(const std::string& p_sBody, bool p_bCompressed = false) {
    tIn.iSvcNum = 12;
    tIn.iMsgNum = 120;
    tIn.iExtra = -5;
    tIn.sUserKey = "KEY 1";
    tIn.sAux13 = "aux thirteen";
    tIn.sAux8 = "aux8";
    tIn.sAux21 = "aux twenty-one";
    tIn.bCompressed = p_bCompressed;
    SetBody(tIn, p_sBody);
  }

  void Run(const COtherPeer& p_cPeer, int p_iTimeOut = 20) {
    REQUIRE(cAdaptor.Connect("127.0.0.1", p_cPeer.Port()) >= 0);
    iSent = cAdaptor.SendTo(&tIn, 20);
    if (iSent == 0) iReceived = cAdaptor.ReceiveFrom(&tOut, p_iTimeOut);
    cAdaptor.Disconnect();
  }
};

}    // namespace

TEST_CASE("another implementation reads our packets and we read its") {
  COtherPeer cPeer({"--connections", "0"});
  struct T_Row { std::string sBody; bool bCompressed; const char* szReport; };
  const T_Row atRow[] = {
      {"", false, R"("body": "", "body_length": 0, "sent_length": 0})"},
      {"hello", false, R"("body": "hello", "body_length": 5, "sent_length": 5})"},
      {std::string("\0\n\xFF", 3), false, R"("body": "\u0000\n\u00ff", "body_length": 3, "sent_length": 3})"},
      {"", true, R"("body": "", "body_length": 0, "sent_length": 8})"},
      {"hello", true, R"("body": "hello", "body_length": 5, "sent_length": 13})"},
      {std::string(200, 'x'), true, nullptr},
      {Noise(300000), false, nullptr},
      {Noise(300000), true, nullptr},
      {std::string(3000000, 'x'), true, nullptr},
  };
  for (const T_Row& tRow : atRow) {
    CAPTURE(tRow.sBody.size());
    T_Exchange tExchange(tRow.sBody, tRow.bCompressed);
    tExchange.Run(cPeer);
    CHECK(tExchange.iSent == 0);
    CHECK(tExchange.iReceived == 0);
    CHECK(tExchange.cAdaptor.Error() == "");
    const std::string sHead =
        R"({"svc": 12, "msg": 120, "extra": -5, "key": "KEY 1               ", "aux13": "aux thirteen ", )"
        R"("aux8": "aux8    ", "aux21": "aux twenty-one       ", "flag": ")" +
        std::string(tRow.bCompressed ? "Y" : "N") + "\", ";
    const std::string sReport = cPeer.Report();
    CHECK(sReport.substr(0, sHead.size()) == sHead);
    if (tRow.szReport != nullptr) CHECK(sReport.substr(sHead.size()) == tRow.szReport);

    CHECK(tExchange.tOut.iSvcNum == 12);
    CHECK(tExchange.tOut.iMsgNum == 120);
    CHECK(tExchange.tOut.iExtra == -5);
    CHECK(tExchange.tOut.sTimeStamp == tExchange.tIn.sTimeStamp.ToStr());
    CHECK(tExchange.tOut.sUserKey == "KEY 1");
    CHECK(tExchange.tOut.sAux13 == "aux thirteen ");
    CHECK(tExchange.tOut.bCompressed == tRow.bCompressed);
    CHECK(tExchange.tOut.sAux8 == "aux8    ");
    CHECK(tExchange.tOut.sAux21 == "aux twenty-one       ");
    CHECK((Bytes(tExchange.tOut.stBody) == tRow.sBody));
  }
}

TEST_CASE("another implementation's own reply") {
  COtherPeer cPeer({"--svc", "9999", "--msg", "10", "--extra", "2147483647", "--time", "20260102-030405", "--key",
                    " K ", "--aux13", "thirteen chars and more", "--body", "<msg no=\"10\"/>", "--compress"});
  T_Exchange tExchange("hello");
  tExchange.Run(cPeer);
  CHECK(tExchange.iReceived == 0);
  CHECK(tExchange.tOut.iSvcNum == 9999);
  CHECK(tExchange.tOut.iMsgNum == 10);
  CHECK(tExchange.tOut.iExtra == 2147483647);
  CHECK(tExchange.tOut.sTimeStamp == "20260102-030405");
  CHECK(tExchange.tOut.sUserKey == "K");
  CHECK(tExchange.tOut.sAux13 == "thirteen char");
  CHECK(tExchange.tOut.bCompressed);
  CHECK(Bytes(tExchange.tOut.stBody) == "<msg no=\"10\"/>");
}

TEST_CASE("faults of another implementation") {
  struct T_Row { std::vector<std::string> asOptions; bool bCompressed; int iTimeOut; int iCode; const char* szText; };
  const T_Row atRow[] = {
      {{"--fault", "begin"}, false, 20, -15, "Header format is incorrect(-15)(Unknown BeginString[XYZ-SSP-V2.0])"},
      {{"--fault", "zlib"}, true, 20, -16, "Compression failed(-16)(ReceiveFrom(-3)(0))"},
      {{"--fault", "trickle"}, false, 20, 0, ""},
      {{"--fault", "trickle"}, true, 20, 0, ""},
      {{"--fault", "silent"}, false, 0, -8, "Socket timeout(-8)((recv to=0))"},
      {{"--fault", "close"}, false, 20, -9, "Socket closed(-9)(OK)"},
      {{"--fault", "stall", "--at", "128"}, false, 3, -17,
       "Packet is corrupted(-17)(uncompleted packet timeout(body))"},
      {{"--fault", "stall", "--at", "-3"}, true, 3, -17,
       "Packet is corrupted(-17)(uncompleted packet timeout(checksum))"},
      {{"--fault", "reset", "--at", "0"}, false, 20, -9, "Socket closed(-9)((Connection reset by peer))"},
      {{"--fault", "reset", "--at", "50"}, false, 20, -9, "Socket closed(-9)((Connection reset by peer))"},
      {{"--fault", "reset", "--at", "130"}, true, 20, -9, "Socket closed(-9)((Connection reset by peer))"},
      {{"--fault", "reset", "--at", "-2"}, false, 20, -9, "Socket closed(-9)((Connection reset by peer))"},
      {{"--length", "2147483647"}, false, 20, -9, "Socket closed(-9)(OK)"},
      {{"--length", "9999999999"}, true, 20, -9, "Socket closed(-9)(OK)"},
      {{"--length", "-000000001"}, true, 20, -129, ""},
      {{"--length", "garbage   "}, false, 20, -128, ""},
      {{"--plain-length", "9999999999"}, true, 20, 0, ""},
      {{"--plain-length", "0000000004"}, true, 20, -16, "Compression failed(-16)(ReceiveFrom(-5)(4))"},
      {{"--plain-length", "-000000001"}, true, 20, -16, "Compression failed(-16)(ReceiveFrom(-5)(0))"},
      {{"--flag", "y"}, true, 20, 0, ""},
  };
  for (const T_Row& tRow : atRow) {
    std::string sOptions;
    for (const std::string& s : tRow.asOptions) sOptions += s + " ";
    CAPTURE(sOptions);
    COtherPeer cPeer(tRow.asOptions);
    T_Exchange tExchange("hello", tRow.bCompressed);
    tExchange.Run(cPeer, tRow.iTimeOut);
    CHECK(tExchange.iSent == 0);
    CHECK(tExchange.iReceived == tRow.iCode);
    CHECK(tExchange.cAdaptor.Error() == tRow.szText);
  }
}

TEST_CASE("a wrong checksum from another implementation names both sums") {
  COtherPeer cPeer({"--fault", "checksum", "--time", "20260102-030405", "--body", ""});
  T_Exchange tExchange("hello");
  tExchange.Run(cPeer);
  CHECK(tExchange.iReceived == -13);
  CHECK(tExchange.cAdaptor.Error() == "Checksum is incorrect(-13)((M:11,C:12))");
}

TEST_CASE("another implementation cuts its reply at every byte") {
  for (const bool bCompressed : {false, true}) {
    CAPTURE(bCompressed);
    COtherPeer cPeer({"--connections", "0", "--fault", "truncate-each"});
    const int iWhole = bCompressed ? 128 + 13 + 3 : 128 + 5 + 3;
    for (int i = 0; i <= iWhole; ++i) {
      CAPTURE(i);
      T_Exchange tExchange("hello", bCompressed);
      tExchange.Run(cPeer);
      CHECK(tExchange.iReceived == (i < iWhole ? -9 : 0));
      CHECK(tExchange.cAdaptor.Error() == (i < iWhole ? "Socket closed(-9)(OK)" : ""));
    }
  }
}

TEST_CASE("a peer that does not read and closes at once") {
  COtherPeer cPeer({"--fault", "deaf", "--connections", "0"});
  const std::string sBody(32000000, 'x');    // more than fits into the kernel's buffers
  for (int i = 0; i < 5; ++i) {
    T_Exchange tExchange(sBody);
    tExchange.Run(cPeer);
    CHECK(tExchange.iSent == -6);    // and no SIGPIPE
    const std::string sError = tExchange.cAdaptor.Error();
    CHECK((sError == "Failed in send()(-6)((send errno=32,Broken pipe))" ||
           sError == "Failed in send()(-6)((send errno=104,Connection reset by peer))"));
  }
}

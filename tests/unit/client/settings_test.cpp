// What the client keeps for the process.
#include <callorv/client/callorv_client.h>
#include <doctest/doctest.h>

#include <string>

#include "support/client_files.h"
#include "support/temp_file.h"

namespace {

// The settings are private. An explicit instantiation may name private members, and lets friends hand them out.
template <CString* SERVER, int* PORT, int* TIME_OUT, CString* USER_KEY, CMsgDic** DIC, bool* SETUP_OK>
struct T_Settings {
  friend CString& Server() { return *SERVER; }
  friend int& Port() { return *PORT; }
  friend int& TimeOut() { return *TIME_OUT; }
  friend CString& UserKey() { return *USER_KEY; }
  friend CMsgDic*& Dictionary() { return *DIC; }
  friend bool& SetupOK() { return *SETUP_OK; }
};
CString& Server();
int& Port();
int& TimeOut();
CString& UserKey();
CMsgDic*& Dictionary();
bool& SetupOK();
template struct T_Settings<&CCallOrv::s_sServer, &CCallOrv::s_iPort, &CCallOrv::s_iTimeOut, &CCallOrv::s_sUserKey,
                           &CCallOrv::s_pMsgDic, &CCallOrv::s_bSetupOK>;

// As they were before main().
const int s_iPortAtLoad = Port();
const int s_iTimeOutAtLoad = TimeOut();
const bool s_bSetupOKAtLoad = SetupOK();
const std::string s_sServerAtLoad = Server().ToStr();
const std::string s_sUserKeyAtLoad = UserKey().ToStr();

// A configuration whose dictionary is empty, so that it can be read again and again.
std::string Configuration(const CTempDir& p_cDir, const std::string& p_sRest) {
  const std::string sKey = p_cDir.Write("user.key", KeyFile("USER"));
  const std::string sDic = p_cDir.Write("dic.xml", "<msg_dictionary/>");
  return p_cDir.Write("callorv.cfg", "msg_dic=" + sDic + "\nkey_file=" + sKey + "\n" + p_sRest);
}

}    // namespace

TEST_CASE("at load there are a dictionary and a time-out of 90 seconds, and the process is not set up") {
  CHECK(s_iPortAtLoad == 0);
  CHECK(s_iTimeOutAtLoad == 90);
  CHECK_FALSE(s_bSetupOKAtLoad);
  CHECK(s_sServerAtLoad.empty());
  CHECK(s_sUserKeyAtLoad.empty());
  CHECK(Dictionary() == MA_GetMsgDic());
}

TEST_CASE("a time-out of the configuration file is at least 60 seconds, and 90 when absent") {
  struct T_Row {
    const char* szLine;
    int iTimeOut;
  };
  for (const T_Row& tRow :
       {T_Row{"", 90}, T_Row{"timeout=30\n", 60}, T_Row{"timeout=60\n", 60}, T_Row{"timeout=61\n", 61},
        T_Row{"timeout=90\n", 90}, T_Row{"timeout=100000\n", 100000}, T_Row{"timeout=0\n", 60},
        T_Row{"timeout=-5\n", 60}, T_Row{"timeout=soon\n", 60}, T_Row{"timeout=\n", 60},
        T_Row{"timeout=70\ntimeout=80\n", 70}}) {
    CAPTURE(tRow.szLine);
    const CTempDir cDir;
    CCallOrvError cErr;
    REQUIRE(CCallOrv::Initialize(Configuration(cDir, "server=s 1\n" + std::string(tRow.szLine)).c_str(), &cErr) == 0);
    CHECK(TimeOut() == tRow.iTimeOut);
  }
}

TEST_CASE("the values form takes its time-out as it is") {
  const CTempDir cDir;
  Configuration(cDir, "");
  for (int iTimeOut : {30, 0, -1, 2147483647}) {
    CCallOrvError cErr;
    const std::string sKey = cDir.Path("user.key"), sDic = cDir.Path("dic.xml");
    REQUIRE(CCallOrv::Initialize(sKey.c_str(), sDic.c_str(), "s", 1, iTimeOut, &cErr) == 0);
    CHECK(TimeOut() == iTimeOut);
  }
}

TEST_CASE("the server's address and port are the first two pieces of the value") {
  struct T_Row {
    const char* szLine;
    const char* szServer;
    int iPort;
  };
  for (const T_Row& tRow : {T_Row{"server=10.0.0.1 7001\n", "10.0.0.1", 7001},
                            T_Row{"  server  =   hostA    7002   # main\n", "hostA", 7002},
                            T_Row{"server=hostB 7003 7004 more\n", "hostB", 7003},
                            T_Row{"server=hostC 70x\n", "hostC", 70}, T_Row{"server=hostD port\n", "hostD", 0},
                            T_Row{"server=hostE 1\nserver=hostF 2\n", "hostE", 1}}) {
    CAPTURE(tRow.szLine);
    const CTempDir cDir;
    CCallOrvError cErr;
    REQUIRE(CCallOrv::Initialize(Configuration(cDir, tRow.szLine).c_str(), &cErr) == 0);
    CHECK(Server() == tRow.szServer);
    CHECK(Port() == tRow.iPort);
    CHECK(UserKey() == "USER");
    CHECK(SetupOK());
  }
}

TEST_CASE("a successful set-up clears the error") {
  const CTempDir cDir;
  const std::string sConfig = Configuration(cDir, "server=s 1\n");
  const std::string sKey = cDir.Path("user.key"), sDic = cDir.Path("dic.xml");
  CCallOrvError cErr;
  for (const bool bFile : {true, false}) {
    cErr.SetError(-9, "before", 7);
    CHECK((bFile ? CCallOrv::Initialize(sConfig.c_str(), &cErr)
                 : CCallOrv::Initialize(sKey.c_str(), sDic.c_str(), "s", 1, 90, &cErr)) == 0);
    CHECK(cErr.GetCode() == 0);
    CHECK(cErr.GetText() == "");
    CHECK(cErr.GetRefSvcNum() == 0);
  }
}

TEST_CASE("a failed set-up keeps server, port and time-out, but perhaps not the key") {
  const CTempDir cDir;
  CCallOrvError cErr;
  REQUIRE(CCallOrv::Initialize(Configuration(cDir, "server=old 1\ntimeout=100\n").c_str(), &cErr) == 0);
  const std::string sNewKey = cDir.Write("new.key", KeyFile("NEW"));
  CHECK(CCallOrv::Initialize(sNewKey.c_str(), cDir.Path("absent.xml").c_str(), "new", 2, 3, &cErr) == -2);
  CHECK(Server() == "old");
  CHECK(Port() == 1);
  CHECK(TimeOut() == 100);
  CHECK(UserKey() == "NEW");
  CHECK(CCallOrv::Initialize(cDir.Path("absent.key").c_str(), "", "new", 2, 3, &cErr) == -1);
  CHECK(UserKey() == "NEW");
  CHECK(SetupOK());
}

TEST_CASE("a dictionary whose name ends in .exml is decrypted") {
  const CTempDir cDir;
  const std::string sKey = cDir.Write("user.key", KeyFile("USER"));
  CStream stPlain(0, 512), stEncrypted(0, 512);
  CString sErr;
  const std::string sPlain = "<msg_dictionary></msg_dictionary>";
  REQUIRE(stPlain.AppendData(sPlain.data(), static_cast<int>(sPlain.size())) == 0);
  REQUIRE(CCrypt::EncryptStream(stPlain, stEncrypted, sErr) == 0);
  const std::string sEncrypted(stEncrypted.GetData(), static_cast<size_t>(stEncrypted.GetSize()));
  struct T_Row {
    const char* szName;
    std::string sContent;
    int iRet;
    const char* szText;
  };
  const T_Row atRow[] = {
      {"good.exml", sEncrypted, 0, ""},
      {"long.exml", sEncrypted + "x", -2, "InitDictionary(Handler error : File may be corrupted)"},
      {"plain.xml", sPlain, 0, ""}};
  for (const T_Row& tRow : atRow) {
    CAPTURE(tRow.szName);
    const std::string sDic = cDir.Write(tRow.szName, tRow.sContent);
    CCallOrvError cErr;
    CHECK(CCallOrv::Initialize(sKey.c_str(), sDic.c_str(), "s", 1, 90, &cErr) == tRow.iRet);
    CHECK(cErr.GetText() == tRow.szText);
  }
}

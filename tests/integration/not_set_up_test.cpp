// A process that no case of this program ever sets up.
#include <callorv/callorv.hpp>
#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "support/client_files.h"
#include "support/temp_file.h"

namespace {

class CNothing : public CMsgBase {
 public:
  int LoadFromMsg(CMsg*) override { return 0; }
  CMsg* CreateMsg() override { return nullptr; }
};

void CheckError(const CCallOrvError& p_cErr, int p_iCode, const std::string& p_sText, int p_iRefSvcNum) {
  CHECK(p_cErr.GetCode() == p_iCode);
  CHECK(p_cErr.GetText().ToStr() == p_sText);
  CHECK(p_cErr.GetRefSvcNum() == p_iRefSvcNum);
}

CCallOrvError OldError() {
  CCallOrvError cErr;
  cErr.SetError(99, "old", 77);
  return cErr;
}

}    // namespace

TEST_CASE("calls before the set-up") {
  CMsg cMsg(0, 0, 0, MA_GetMsgDic());
  CCallOrvError cErr = OldError();
  CHECK(CCallOrv::CallServiceByMsg(7, &cMsg, &cMsg, &cErr) == -1);
  CheckError(cErr, -35, "call CCallOrv::Initialize() first", 7);
  cErr = OldError();
  CHECK(CCallOrv::CallServiceByMsg(7, nullptr, nullptr, &cErr) == -1);    // before the messages are looked at
  CheckError(cErr, -35, "call CCallOrv::Initialize() first", 7);
  CHECK(CCallOrv::CallServiceByMsg(7, &cMsg, &cMsg, nullptr) == -1);
  CNothing cNothing;
  cErr = OldError();
  CHECK(CCallOrv::CallService(7, &cNothing, &cNothing, &cErr) == -1);
  CheckError(cErr, -35, "call CCallOrv::Initialize() first", 7);
  CHECK(CCallOrv::CallService(7, nullptr, nullptr, &cErr) == -1);
  CheckError(cErr, -35, "call CCallOrv::Initialize() first", 7);
  CHECK(CCallOrv::CallService(7, &cNothing, &cNothing, nullptr) == -12);
}

TEST_CASE("calls that hold no thread before the set-up") {
  CMsg cMsg(0, 0, 0, MA_GetMsgDic());
  CNothing cNothing;
  CCallOrvError cErr = OldError();
  CHECK_FALSE(static_cast<bool>(CCallOrv::Start(7, &cMsg, 1000, &cErr)));
  CheckError(cErr, -35, "call CCallOrv::Initialize() first", 7);
  cErr = OldError();
  CHECK_FALSE(static_cast<bool>(CCallOrv::Start(7, static_cast<CMsg*>(nullptr), 1000, &cErr)));
  CheckError(cErr, -35, "call CCallOrv::Initialize() first", 7);
  CHECK_FALSE(static_cast<bool>(CCallOrv::Start(7, &cMsg, 1000, nullptr)));
  cErr = OldError();
  CHECK_FALSE(static_cast<bool>(CCallOrv::Start(7, &cNothing, 1000, &cErr)));
  CheckError(cErr, -35, "call CCallOrv::Initialize() first", 7);
  cErr = OldError();
  CHECK(CCallOrv::CallServiceByMsgWithin(7, &cMsg, &cMsg, 1000, &cErr) == -1);
  CheckError(cErr, -35, "call CCallOrv::Initialize() first", 7);
  CHECK(CCallOrv::CallServiceByMsgWithin(7, &cMsg, &cMsg, 1000, nullptr) == -1);
  cErr = OldError();
  CHECK(CCallOrv::Resolve(&cErr) == -1);
  CheckError(cErr, -35, "call CCallOrv::Initialize() first", 0);
}

TEST_CASE("the dictionary of a process that was not set up is empty") {
  CHECK_FALSE(CMsgDic::m_bLoaded);
  for (int i = 0; i <= 10000; ++i) REQUIRE(MA_GetMsgDic()->GetMsgInfo(i) == nullptr);
  CHECK(MA_GetMsgDic()->GetLastError() == std::string());
  CHECK(MA_NewMsg(1) == nullptr);
}

TEST_CASE("a null error stops the set-up") {
  CHECK(CCallOrv::Initialize(nullptr, nullptr) == -12);
  CHECK(CCallOrv::Initialize(nullptr, nullptr, nullptr, 0, 0, nullptr) == -12);
}

TEST_CASE("a configuration that does not do") {
  const CTempDir cDir;
  const std::string sKey = cDir.Write("user.key", KeyFile("USER"));
  const std::string sDic = cDir.Write("dic.xml", "<dictionary/>");
  const std::string sPath = cDir.Path("callorv.cfg");
  const std::string sAll = "msg_dic=" + sDic + "\nkey_file=" + sKey + "\n";
  struct T_Row {
    std::string sConfig;
    int iRet;
    std::string sText;
  };
  const std::vector<T_Row> cRows = {
      {"", -1, "cannot found 'msg_dic' key in config file"},
      {"key_file=k\nserver=s 1\n", -1, "cannot found 'msg_dic' key in config file"},
      {"msg_dic=m\n", -1, "cannot found 'key_file' key in config file"},
      {"msg_dic=m\nserver=s 1\n", -1, "cannot found 'key_file' key in config file"},
      {"msg_dic=m\nkey_file=k\n", -1, "cannot found 'server' key in config file"},
      {sAll + "server=127.0.0.1\n", -1, "'server' key syntax is [server=ip_address port]"},
      {sAll + "server=\n", -1, "'server' key syntax is [server=ip_address port]"},
      {sAll + "server=127.0.0.1,7001\n", -1, "'server' key syntax is [server=ip_address port]"},
      {"msg_dic=m\nkey_file=/nonexistent/k\nserver=s 1\n", -1, "File not found(/nonexistent/k)"},
      {sAll + "server=127.0.0.1   7001 more\n", -2,
       "InitDictionary(Handler error : Unknown root element - dictionary)"}};
  for (const T_Row& tRow : cRows) {
    CAPTURE(tRow.sConfig);
    cDir.Write("callorv.cfg", tRow.sConfig);
    CCallOrvError cErr = OldError();
    CHECK(CCallOrv::Initialize(sPath.c_str(), &cErr) == tRow.iRet);
    CheckError(cErr, 0, tRow.sText, 0);
  }
}

TEST_CASE("a configuration file that is not there") {
  CCallOrvError cErr = OldError();
  CHECK(CCallOrv::Initialize("/nonexistent/callorv.cfg", &cErr) == -1);
  CheckError(cErr, 0, "File open failed [/nonexistent/callorv.cfg](2,No such file or directory)", 0);
  CHECK(CCallOrv::Initialize(nullptr, &cErr) == -1);
  CHECK(cErr.GetCode() == 0);
}

TEST_CASE("values that do not do") {
  const CTempDir cDir;
  const std::string sGood = KeyFile("USER");
  const std::string sKey = cDir.Write("user.key", sGood);
  const std::string sShort = cDir.Write("short.key", sGood.substr(0, 4143));
  std::string sBytes = sGood;
  sBytes[3000] = static_cast<char>(sBytes[3000] + 1);
  const std::string sDamaged = cDir.Write("damaged.key", sBytes);
  const std::string sEmpty = cDir.Write("empty.key", KeyFile(""));
  const std::string sDic = cDir.Write("dic.xml", "<msg_dictionary><tag/></msg_dictionary>");
  const std::string sNoDic = cDir.Path("no.xml");
  struct T_Row {
    const char* szKeyFile;
    const char* szDicFile;
    int iRet;
    std::string sText;
  };
  const std::vector<T_Row> cRows = {
      {nullptr, sDic.c_str(), -1, "p_szFileName is NULL"},
      {"/nonexistent/k", sDic.c_str(), -1, "File not found(/nonexistent/k)"},
      {sShort.c_str(), sDic.c_str(), -1, "Corrupted UserKey data"},
      {sDamaged.c_str(), sDic.c_str(), -1, "Corrupted UserKey data(checksum)"},
      {sEmpty.c_str(), sDic.c_str(), -1, "Invalid UserKey"},
      {sKey.c_str(), nullptr, -2, "MsgDic Path"},
      {sKey.c_str(), sDic.c_str(), -2, "InitDictionary(Handler error : Unknown element - tag)"},
      {sKey.c_str(), sNoDic.c_str(), -2,
       "InitDictionary(Handler error : [F] (L:0, C:0) : unable to open primary document entity '" + sNoDic + "')"}};
  for (const T_Row& tRow : cRows) {
    CAPTURE(tRow.sText);
    CCallOrvError cErr = OldError();
    CHECK(CCallOrv::Initialize(tRow.szKeyFile, tRow.szDicFile, "127.0.0.1", 7001, 90, &cErr) == tRow.iRet);
    CheckError(cErr, 0, tRow.sText, 0);
    CMsg cMsg(0, 0, 0, MA_GetMsgDic());
    CHECK(CCallOrv::CallServiceByMsg(7, &cMsg, &cMsg, &cErr) == -1);    // still not set up
  }
}

TEST_CASE("GetUserKey") {
  const CTempDir cDir;
  CString sKey, sErr;
  CHECK(CCallOrv::GetUserKey(cDir.Write("15.key", KeyFile("FIFTEEN-LETTERS")).c_str(), sKey, sErr) == 0);
  CHECK(sKey == "FIFTEEN-LETTERS");
  CHECK(CCallOrv::GetUserKey(cDir.Write("20.key", KeyFile("TWENTY-LETTERS-WIDE!")).c_str(), sKey, sErr) == 0);
  CHECK(sKey == "TWENTY-LETTERS-WIDE!");
  CHECK(CCallOrv::GetUserKey(cDir.Write("0.key", KeyFile("")).c_str(), sKey, sErr) == 0);
  CHECK(sKey == "");
  CHECK(CCallOrv::GetUserKey("/nonexistent/k", sKey, sErr) == -1);
  CHECK(sErr == "File not found(/nonexistent/k)");
  CHECK(CCallOrv::GetUserKey(cDir.Write("bad.key", "short").c_str(), sKey, sErr) == -2);
  CHECK(sErr == "Corrupted UserKey data");
}

TEST_CASE("ReadFileToStream") {
  const CTempDir cDir;
  const std::string sBytes = std::string("a\0b\r\n", 5) + std::string(70000, 'x');
  CStream stOut(0, 512);
  stOut.AppendData("old", 3);
  CString sErr("old");
  CHECK(CCallOrv::ReadFileToStream(cDir.Write("file", sBytes).c_str(), stOut, sErr) == 0);
  CHECK(std::string(stOut.GetData(), static_cast<size_t>(stOut.GetSize())) == sBytes);
  CHECK(stOut.GetData()[stOut.GetSize()] == 0);
  CHECK(sErr == "");
  CHECK(CCallOrv::ReadFileToStream(cDir.Write("none", "").c_str(), stOut, sErr) == 0);
  CHECK(stOut.GetSize() == 0);

  stOut.AppendData("old", 3);
  CHECK(CCallOrv::ReadFileToStream("/nonexistent/f", stOut, sErr) == -2);
  CHECK(sErr == "File not found(/nonexistent/f)");
  CHECK(stOut.GetSize() == 0);
  CHECK(CCallOrv::ReadFileToStream(nullptr, stOut, sErr) == -1);
  CHECK(sErr == "p_szFileName is NULL");
}

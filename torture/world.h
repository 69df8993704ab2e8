// What the programs that make calls fail one by one share: messages, files and a server's answers.
#ifndef TORTURE_WORLD_H
#define TORTURE_WORLD_H

#include <callorv/callorv.h>
#include <callorv/callorv.hpp>
#include <callorv/crypt/crypt.h>

#include <map>
#include <memory>
#include <string>

#include "support/client_files.h"
#include "support/descriptors.h"
#include "support/service_peer.h"
#include "support/temp_file.h"

inline const char* LongText() { return "a text that is too long to be stored in place"; }

struct T_FreeMsg {
  void operator()(CMsg* p_pMsg) const { MA_FreeMsg(p_pMsg); }
};
using CMsgPtr = std::unique_ptr<CMsg, T_FreeMsg>;

inline std::string Xml(const CMsg& p_cMsg) {
  CStream stXml(0, 512);
  p_cMsg.ToXml(&stXml, false, false, 1);
  return stXml.GetData();
}

inline CMsgPtr Row(const char* p_szText) {
  CMsgPtr pRow(MA_NewMsg(101));
  pRow->SetValue(1, p_szText);
  return pRow;
}

// Message 100 with a value under every tag and four in every array, so that the next one needs room.
inline void Fill(CMsg& p_cMsg) {
  p_cMsg.SetValue(1, LongText());
  p_cMsg.SetValue(2, 5);
  p_cMsg.SetValue(3, 1.5);
  p_cMsg.SetValue(4, true);
  p_cMsg.SetValue(5, CDate("20240131"));
  p_cMsg.NewSub(6)->SetValue(1, LongText());
  for (int i = 0; i < 4; ++i) {
    p_cMsg.SetValue(11, LongText());
    p_cMsg.SetValue(12, i);
    p_cMsg.SetValue(13, i + 0.25);
    p_cMsg.SetValue(14, i % 2 == 0);
    p_cMsg.SetValue(15, CDate("20240229"));
    p_cMsg.SetValue(16, Row(LongText()).release());
  }
}

// What the server does for a service.
enum E_Service { ECHO_PLAIN = 1, ECHO_COMPRESSED, REJECTS, MALFORMED, CLOSES };

inline std::string Answer(const T_Request& p_tRequest) {
  switch (p_tRequest.SvcNum()) {
    case ECHO_PLAIN: return Packet(p_tRequest.sBody);
    case ECHO_COMPRESSED: return Packet(p_tRequest.sBody, true);
    case REJECTS: return Packet("<msg no='10'><t6>5</t6><t7>" + std::string(LongText()) + "</t7><t8>3</t8></msg>");
    case MALFORMED: return Packet("<msg no='100'>");
    default: return "";
  }
}

enum { TIME_OUT = 75 };    // seconds; not a default

// What the process is set up from.
struct T_Files {
  CTempDir cDir;
  std::string sKey = cDir.Write("user.key", KeyFile("TEST-USER-1"));
  std::string sPlain = cDir.Write("dic.xml", ClientDictionary());
  std::string sEncrypted = cDir.Write("dic.exml", Encrypted(ClientDictionary()));
  std::string sEmpty = cDir.Write("empty.xml", "<msg_dictionary/>");
  std::map<std::string, std::string> asConfig;    // a configuration file by each dictionary

  explicit T_Files(int p_iPort) {
    for (const std::string& sDic : {sPlain, sEncrypted, sEmpty}) {
      asConfig[sDic] = cDir.Write(sDic.substr(sDic.rfind('/') + 1) + ".cfg",
                                  "msg_dic = " + sDic + "\nkey_file = " + sKey + "\nserver = 127.0.0.1 " +
                                      std::to_string(p_iPort) + "\ntimeout = " + std::to_string(TIME_OUT) + "\n");
    }
  }

  // A text in which the folder, which has another name each time, is DIR.
  std::string Named(std::string p_sText) const {
    const std::string& sDir = cDir.Path();
    for (size_t i = 0; (i = p_sText.find(sDir, i)) != p_sText.npos;) p_sText.replace(i, sDir.size(), "DIR");
    return p_sText;
  }

 private:
  static std::string Encrypted(const std::string& p_sText) {
    CStream stIn(0, 512), stOut(0, 512);
    CString sErr;
    stIn.AppendData(p_sText.data(), static_cast<int>(p_sText.size()));
    CCrypt::EncryptStream(stIn, stOut, sErr);
    return std::string(stOut.GetData(), static_cast<size_t>(stOut.GetSize()));
  }
};

// "0", or result, code and text of an operation of the C interface that fails.
inline std::string ResultText(int p_iRet, const CallOrv_Error& p_tErr) {
  if (p_iRet == 0) return "0";
  return std::to_string(p_iRet) + " error " + std::to_string(p_tErr.iCode) + " " + p_tErr.szText + " " +
         std::to_string(p_tErr.iRefSvcNum);
}

#endif

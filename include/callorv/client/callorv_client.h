// The service client.
#ifndef CALLORV_CLIENT_CALLORV_CLIENT_H
#define CALLORV_CLIENT_CALLORV_CLIENT_H

#include "callorv/base/str.h"
#include "callorv/base/stream.h"
#include "callorv/client/callorv_error.h"
#include "callorv/client/msg_base.h"
#include "callorv/client/pending_call.h"
#include "callorv/msg/msg.h"

// Set up once for the process, then called from any number of threads at once: each call has its own connection, and
// each thread its own messages. Initialize must not run while calls do. No connection is kept and nothing is retried.
class CALLORV_API CCallOrv {
 public:
  // Reads the configuration file and calls the other form. Keys: "msg_dic" (dictionary file), "key_file", "server"
  // ("address port"); "timeout" (seconds to wait for a reply; 90 when absent, raised to 60 when less).
  //   returns  0; -12 p_pErr is null; -1 configuration or key failed; -2 dictionary failed; the text, with code 0,
  //            is in p_pErr
  static int Initialize(const char* p_szConfigFile, CCallOrvError* p_pErr);
  // Reads the key file and the dictionary and keeps the settings. p_iTimeOut (seconds) is taken as it is; 0 does not
  // wait for a reply, below 0 counts as 60. Again: replaces key and settings, but a dictionary that has messages
  // already fails with -2; a failed repeat leaves the process set up, perhaps with the new key.
  //   returns  0; -12 p_pErr is null; -1 key file failed or "Invalid UserKey"; -2 dictionary failed (CException's text)
  static int Initialize(const char* p_szKeyFile, const char* p_szMsgDicFile, const char* p_szServer, int p_iPort,
                        int p_iTimeOut, CCallOrvError* p_pErr);

  // Calls a service with typed messages (both borrowed).
  //   returns  0 with p_pOut filled, or, with p_pErr filled:
  //            -12 p_pErr is null; -1 (-35 "call CCallOrv::Initialize() first", -12 "Input Msg(p_pIn) is NULL",
  //            -12 "Output Msg(p_pOut) is NULL"); -2 (-1 "Input Msg is corrupted(%s)"); -3 (-11 "Out of memory");
  //            -4 as CallServiceByMsg; -5 (-1 with p_pOut's sLastError)
  // Throws CException when CreateMsg or LoadFromMsg does.
  static int CallService(int p_iSvcNum, CMsgBase* p_pIn, CMsgBase* p_pOut, CCallOrvError* p_pErr);
  // Calls a service with dictionary messages (both borrowed). p_pOut is initialised again for the reply; better is a
  // new one for each call, as CMsg::Init says. The time-out bounds each wait for more of the reply, not the call; the
  // system decides how long connecting and sending may take. A signal handler that runs in the thread while it waits
  // for the reply ends the call (-3). pthread_cancel ends the thread at such a wait; the connection is closed.
  //   returns  0 with the reply in p_pOut, or, with p_pErr filled (code, text, reference):
  //            -1 (-35, "call CCallOrv::Initialize() first", p_iSvcNum); -2 (-12, "Parameter is NULL", p_iSvcNum);
  //            -12 p_pErr is null; -3 (-1 to -7, reason, -1): null, XML, connect, send, receive, -6 and -7 reply;
  //            -4 rejected: code, text and service number come from the server
  static int CallServiceByMsg(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, CCallOrvError* p_pErr);

  // ---- calls that hold no thread, and calls with a deadline; callorv/callorv.h has what they promise
  // CallOrv_Start. An empty one on failure, with p_pErr (if there is one) filled as by CallServiceByMsg or, for a typed
  // message, CallService. Throws std::bad_alloc, and CException when CreateMsg does.
  static CPendingCall Start(int p_iSvcNum, CMsg* p_pIn, int p_iDeadlineMs, CCallOrvError* p_pErr);
  static CPendingCall Start(int p_iSvcNum, CMsgBase* p_pIn, int p_iDeadlineMs, CCallOrvError* p_pErr);
  // CallOrv_CallServiceWithin. Throws std::bad_alloc.
  static int CallServiceByMsgWithin(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, int p_iDeadlineMs, CCallOrvError* p_pErr);
  // CallOrv_Resolve. Throws std::bad_alloc.
  static int Resolve(CCallOrvError* p_pErr);

  // What one call sent and received, as far as it came.
  struct CALLORV_API T_Exchange {
    CString sSendHeader;    // the request's 128 bytes with the 3 of its checksum behind; "" when it was not made
    CStream stSent;         // the request's body before compression
    CString sRecvHeader;    // the reply's 128 bytes; "" when none came
    CStream stReceived;     // the reply's body after decompression

    T_Exchange();
    void Clear();    // as new
  };
  // The same, telling p_pExchange (null: nobody) what went over the connection.
  static int CallServiceByMsg(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, CCallOrvError* p_pErr, T_Exchange* p_pExchange);

  // ---- the steps of the above, for tools
  // One request and one reply, without looking at what the reply says.
  //   p_iExtra  goes into the packet header as it is
  //   returns   0, or, with the reason in p_sErr: -1 "Parameter is NULL(%p, %p)"; -2 request not written;
  //             -3 not connected; -4 not sent; -5 no reply; -6 reply not read; -7 "%d, %s(%s)" reply not read: code,
  //             MA_GetErrorStr(code) and text of the CException
  static int CallServiceCore(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, int p_iExtra, CString& p_sErr);
  // The same, telling p_pExchange (null: nobody) what went over the connection.
  static int CallServiceCore(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, int p_iExtra, CString& p_sErr,
                             T_Exchange* p_pExchange);
  // 0, or, with the reason in p_sErr: -1 the file cannot be read, -2 it is no key file.
  static int GetUserKey(const char* p_szKeyFile, CString& p_sKey, CString& p_sErr);
  // The bytes of a file. 0; -1 "p_szFileName is NULL"; -2 "File not found(%s)"; -5 "File cannot be open(%s)", also for
  // more than 2147483646 bytes. A folder, a pipe and a device are empty; the last two are not opened, as that could
  // wait.
  static int ReadFileToStream(const char* p_szFileName, CStream& p_stOut, CString& p_sErr);

 private:
  static CString s_sServer;
  static int s_iPort;
  static int s_iTimeOut;    // seconds
  static CString s_sUserKey;
  static CMsgDic* s_pMsgDic;
  static bool s_bSetupOK;
  static CString s_sResolvedHost;    // the server when Resolve looked it up
  static CString s_sResolved;        // its address; "" before

  static int StartChecked(int p_iSvcNum, CMsg& p_cIn, int p_iDeadlineMs, CCallOrvError& p_cErr, CPendingCall& p_cCall);
};

#endif

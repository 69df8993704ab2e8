// Service calls for C.
#include "callorv/callorv.h"
#include "callorv/client/callorv_client.h"
#include "capi/guard.h"

using callorv::detail::GuardService;

int CallOrv_Initialize(const char* configFile, CallOrv_Error* err) {
  return GuardService(err, [&](CCallOrvError* p_pErr) { return CCallOrv::Initialize(configFile, p_pErr); });
}

int CallOrv_InitializeEx(const char* keyFile, const char* msgDicFile, const char* server, int port, int timeOut,
                         CallOrv_Error* err) {
  return GuardService(err, [&](CCallOrvError* p_pErr) {
    return CCallOrv::Initialize(keyFile, msgDicFile, server, port, timeOut, p_pErr);
  });
}

int CallOrv_CallService(int svcNum, CMsg* in, CMsg* out, CallOrv_Error* err) {
  return GuardService(err, [&](CCallOrvError* p_pErr) { return CCallOrv::CallServiceByMsg(svcNum, in, out, p_pErr); });
}

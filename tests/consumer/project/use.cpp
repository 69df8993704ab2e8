// The C++ interface as an installed program sees it: its one argument is the dictionary of the examples.
#include <callorv/callorv.hpp>
#include <cstdio>
#include <cstring>

#define CHECK(c) \
  if (!(c)) return std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #c), 1

int main(int argc, char** argv) {
  CHECK(argc == 2);
  try {
    MA_GetMsgDic()->InitDictionary("no such file");
    CHECK(false);
  } catch (const CException& cError) {    // thrown by one library, a type of the other
    CHECK(cError.GetCode() == -21);
  }
  MA_GetMsgDic()->InitDictionary(argv[1]);

  CMsg cMsg(1101, 0, 0, MA_GetMsgDic());
  CHECK(cMsg.SetValue("Symbol", "ACME") == 0);
  CString sSymbol;
  CHECK(cMsg.GetValue("Symbol", &sSymbol) == 0);
  CHECK(sSymbol == "ACME");
  CHECK(cMsg.SetValue(99, 1) == -18);

  CTcpAdaptor cAdaptor;
  char szByte;
  CHECK(cAdaptor.ReceiveData(&szByte, 1, 1) == -12);
  CCallOrvError cError;
  CHECK(CCallOrv::CallServiceByMsg(1001, &cMsg, &cMsg, &cError) == -1);
  CHECK(cError.GetText() == "call CCallOrv::Initialize() first");
  return 0;
}

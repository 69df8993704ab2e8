// Calls three services of the example broker from C++: a quote, a list of orders, and a cancellation that is rejected.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "callorv/callorv.hpp"

namespace {

enum { SVC_QUOTE = 1001, SVC_ORDER_LIST = 1002, SVC_CANCEL = 1003 };
enum { ORDERS = 30 };

struct T_FreeMsg {
  void operator()(CMsg* p_pMsg) const { MA_FreeMsg(p_pMsg); }
};
typedef std::unique_ptr<CMsg, T_FreeMsg> CMsgPtr;

// A message of a number of the dictionary; 0 for a reply, which brings its own.
CMsgPtr NewMsg(int p_iMsgNum) {
  CMsgPtr pMsg(MA_NewMsg(p_iMsgNum));
  if (pMsg == nullptr) throw std::runtime_error("no such message in the dictionary");
  return pMsg;
}

template <class T>
void Set(CMsg& p_cMsg, const char* p_szTag, T p_Value) {
  if (p_cMsg.SetValue(p_szTag, p_Value) < 0) throw std::runtime_error(p_cMsg.GetLastError());
}

template <class T>
T Get(CMsg& p_cMsg, const char* p_szTag) {
  T Value = T();
  if (p_cMsg.GetValue(p_szTag, &Value) < 0) throw std::runtime_error(p_cMsg.GetLastError());
  return Value;
}

// A service whose failure nobody expects.
CMsgPtr Call(int p_iSvcNum, CMsg& p_cIn) {
  CMsgPtr pOut = NewMsg(0);
  CCallOrvError cErr;
  if (CCallOrv::CallServiceByMsg(p_iSvcNum, &p_cIn, pOut.get(), &cErr) < 0) {
    throw std::runtime_error(cErr.Repr().ToStr());
  }
  return pOut;
}

void Quote() {
  CMsgPtr pIn = NewMsg(1101);
  Set(*pIn, "Symbol", "ACME");
  CMsgPtr pOut = Call(SVC_QUOTE, *pIn);
  std::printf("quote: %s %.2f, %d traded on %s%s\n", Get<CString>(*pOut, "Symbol").ToStr(), Get<double>(*pOut, "Last"),
              Get<int>(*pOut, "Volume"), Get<CDate>(*pOut, "TradeDate").ToStr(),
              Get<bool>(*pOut, "Halted") ? ", halted" : "");
}

void PrintOrder(CMsg& p_cOrder) {
  std::printf("  %d %s, %d filled", Get<int>(p_cOrder, "OrderNum"), Get<CString>(p_cOrder, "Symbol").ToStr(),
              Get<int>(p_cOrder, "Filled"));
  CDblArray cPrices;
  p_cOrder.GetValue("Prices", &cPrices);    // stays empty when nothing was filled
  for (int i = 0; i < cPrices.GetSize(); ++i) std::printf("%s%.2f", i == 0 ? " at " : ", ", cPrices[i]);
  std::printf("\n");
}

// With this many rows the request is longer than 1,024 bytes, so the library compresses it.
void OrderList() {
  static const char* const s_aszSymbol[] = {"ACME", "BLUE", "CORN"};
  CMsgPtr pIn = NewMsg(1201);
  Set(*pIn, "Account", "77-1204");
  Set(*pIn, "ValidUntil", CDate("20240731"));
  for (int i = 0; i < ORDERS; ++i) {
    CMsgPtr pOrder = NewMsg(1202);
    Set(*pOrder, "Symbol", s_aszSymbol[i % 3]);
    Set(*pOrder, "Buy", true);
    Set(*pOrder, "Quantity", 10 * (i + 1));
    Set(*pOrder, "Limit", 100.0 + i);
    Set(*pIn, "Orders", pOrder.get());
    pOrder.release();    // the list has taken it over
  }

  CMsgPtr pOut = Call(SVC_ORDER_LIST, *pIn);
  std::printf("orders: %d accepted\n", Get<int>(*pOut, "Accepted"));
  CMsgArray cRows(false);
  if (pOut->GetValue("Orders", &cRows) < 0) throw std::runtime_error(pOut->GetLastError());
  for (int i = 0; i < cRows.GetSize(); ++i) PrintOrder(*cRows.GetAt(i));
}

// The server rejects this one: -4, with its own code, text and service number in the error.
void Cancel() {
  CMsgPtr pIn = NewMsg(1301);
  Set(*pIn, "Account", "77-1204");
  Set(*pIn, "OrderNum", 90001);
  CMsgPtr pOut = NewMsg(0);
  CCallOrvError cErr;
  if (CCallOrv::CallServiceByMsg(SVC_CANCEL, pIn.get(), pOut.get(), &cErr) != -4) {
    throw std::runtime_error("a rejection was expected");
  }
  std::printf("cancel: rejected with %d, %s (service %d)\n", cErr.GetCode(), cErr.GetText().ToStr(),
              cErr.GetRefSvcNum());
}

}    // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s CONFIGURATION\n", argv[0]);
    return EXIT_FAILURE;
  }
  CCallOrvError cErr;
  if (CCallOrv::Initialize(argv[1], &cErr) < 0) {
    std::fprintf(stderr, "initialisation: %s\n", cErr.GetText().ToStr());
    return EXIT_FAILURE;
  }
  try {
    Quote();
    OrderList();
    Cancel();
  } catch (const CException& p_c) {
    std::fprintf(stderr, "%s\n", p_c.GetText());
    return EXIT_FAILURE;
  } catch (const std::exception& p_c) {
    std::fprintf(stderr, "%s\n", p_c.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

// Calls three services of the example broker from C++: a quote, a list of orders, and a cancellation that is rejected.
// The message classes are generated from the dictionary.
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "callorv/callorv.hpp"
#include "cancel_reply_msg.h"
#include "cancel_request_msg.h"
#include "order_list_reply_msg.h"
#include "order_list_request_msg.h"
#include "quote_reply_msg.h"
#include "quote_request_msg.h"

namespace {

enum { SVC_QUOTE = 1001, SVC_ORDER_LIST = 1002, SVC_CANCEL = 1003 };
enum { ORDERS = 30 };

// A service whose failure nobody expects.
void Call(int p_iSvcNum, CMsgBase& p_cIn, CMsgBase& p_cOut) {
  CCallOrvError cErr;
  if (CCallOrv::CallService(p_iSvcNum, &p_cIn, &p_cOut, &cErr) < 0) throw std::runtime_error(cErr.Repr().ToStr());
}

void Quote() {
  msgs::CQuoteRequest cIn;
  cIn.Symbol.Set("ACME");
  msgs::CQuoteReply cOut;
  Call(SVC_QUOTE, cIn, cOut);
  std::printf("quote: %s %.2f, %d traded on %s%s\n", cOut.Symbol.Get().ToStr(), cOut.Last.Get(), cOut.Volume.Get(),
              cOut.TradeDate.ToStr(), cOut.Halted.Get() ? ", halted" : "");
}

// With this many rows the request is longer than 1,024 bytes, so the library compresses it.
void OrderList() {
  static const char* const s_aszSymbol[] = {"ACME", "BLUE", "CORN"};
  msgs::COrderListRequest cIn;
  cIn.Account.Set("77-1204");
  cIn.ValidUntil.Set("20240731");
  for (int i = 0; i < ORDERS; ++i) {
    msgs::COrder cOrder;
    cOrder.Symbol.Set(s_aszSymbol[i % 3]);
    cOrder.Buy.Set(true);
    cOrder.Quantity.Set(10 * (i + 1));
    cOrder.Limit.Set(100.0 + i);
    cIn.Orders.push_back(cOrder);
  }

  msgs::COrderListReply cOut;
  Call(SVC_ORDER_LIST, cIn, cOut);
  std::printf("orders: %d accepted\n", cOut.Accepted.Get());
  for (const msgs::COrderState& cOrder : cOut.Orders) {
    std::printf("  %d %s, %d filled", cOrder.OrderNum.Get(), cOrder.Symbol.Get().ToStr(), cOrder.Filled.Get());
    const char* szBefore = " at ";    // there are no prices when nothing was filled
    for (double dPrice : cOrder.Prices) {
      std::printf("%s%.2f", szBefore, dPrice);
      szBefore = ", ";
    }
    std::printf("\n");
  }
}

// The server rejects this one: -4, with its own code, text and service number in the error.
void Cancel() {
  msgs::CCancelRequest cIn;
  cIn.Account.Set("77-1204");
  cIn.OrderNum.Set(90001);
  msgs::CCancelReply cOut;
  CCallOrvError cErr;
  if (CCallOrv::CallService(SVC_CANCEL, &cIn, &cOut, &cErr) != -4 || cErr.GetCode() <= 0) {
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

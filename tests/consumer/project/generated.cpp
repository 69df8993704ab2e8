// Uses a class that is generated when this project is built.
#include <callorv/callorv.hpp>
#include <cstdio>
#include <memory>

#include "order_list_request_msg.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  try {
    MA_GetMsgDic()->InitDictionary(argv[1]);
  } catch (const CException& cError) {
    std::fprintf(stderr, "%s\n", cError.GetText());
    return 1;
  }
  broker::COrderListRequest cOut, cBack;
  cOut.Account.Set("77-1204");
  cOut.Orders.resize(1);
  cOut.Orders[0].Limit.Set(1.5);
  const std::unique_ptr<CMsg> pMsg(cOut.CreateMsg());
  if (pMsg == nullptr || cBack.LoadFromMsg(pMsg.get()) < 0) return 1;
  return cBack.Account.Get() == "77-1204" && cBack.Orders.at(0).Limit.Get() == 1.5 ? 0 : 1;
}

// Calls a service that sends its request back, with generated classes: C++11, as an application would.
#include <callorv/callorv.hpp>
#include <cstdio>

#include "every_msg.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  CCallOrvError cError;
  if (CCallOrv::Initialize(argv[1], &cError) < 0) {
    std::printf("%s\n", cError.GetText().ToStr());
    return 1;
  }
  msgs::CEvery cIn, cOut;
  cIn.text.Set("text");
  cIn.number.Set(7);
  cIn.day.Set("20260131");
  cIn.flags.push_back(true);
  cIn.nodes.resize(200);    // long enough to be compressed
  for (msgs::CNode& cNode : cIn.nodes) cNode.next.Make().label.Set("label");
  const int iRet = CCallOrv::CallService(1201, &cIn, &cOut, &cError);
  std::printf("%d %s\n", iRet, cError.Repr().ToStr());
  if (iRet < 0) return 1;
  std::printf("%s %d %s %d %d %s, ratio %s\n", cOut.text.Get().ToStr(), cOut.number.Get(), cOut.day.ToStr(),
              static_cast<int>(cOut.flags.size()), static_cast<int>(cOut.nodes.size()),
              cOut.nodes.back().next->label.Get().ToStr(), cOut.ratio.IsSet() ? "set" : "absent");
  return 0;
}

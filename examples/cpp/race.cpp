// Asks a service twice on Asio. The first answer counts, the other call is cancelled; after three seconds nobody waits
// any longer.
#include <poll.h>

#include <asio.hpp>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>

#include "callorv/callorv.hpp"

namespace {

enum { SVC_QUOTE = 1001, DEADLINE_MS = 3000 };

// One call on an event loop. fnOver is called once, with the call to be finished, unless the call is cancelled before.
class CLoopCall : public std::enable_shared_from_this<CLoopCall> {
 public:
  CLoopCall(asio::io_context& p_cLoop, CPendingCall p_cCall, std::function<void(CPendingCall)> p_fnOver)
      : m_cSocket(p_cLoop), m_cTimer(p_cLoop), m_cCall(std::move(p_cCall)), m_fnOver(std::move(p_fnOver)) {
    if (m_cCall.GetFd() >= 0) m_cSocket.assign(m_cCall.GetFd());
  }
  ~CLoopCall() { Forget(); }

  void Step() {
    if (!m_cCall) return;    // cancelled, or over already
    if (!m_cCall.Step()) {
      Forget();
      m_cTimer.cancel();
      m_fnOver(std::move(m_cCall));
      return;
    }
    const auto fnReady = [cThis = shared_from_this()](const asio::error_code& p_cError) {
      if (!p_cError) cThis->Step();
    };
    m_cSocket.async_wait((m_cCall.GetEvents() & POLLOUT) != 0 ? m_cSocket.wait_write : m_cSocket.wait_read, fnReady);
    m_cTimer.expires_after(std::chrono::milliseconds(m_cCall.GetTimeLeft()));    // forgets the wait before
    m_cTimer.async_wait(fnReady);
  }

  void Cancel() {
    Forget();
    m_cTimer.cancel();
    m_cCall.Cancel();
  }

 private:
  asio::posix::stream_descriptor m_cSocket;
  asio::steady_timer m_cTimer;
  CPendingCall m_cCall;
  std::function<void(CPendingCall)> m_fnOver;

  void Forget() {    // the descriptor is the call's, so Asio gives it back before the call closes it
    if (m_cSocket.is_open()) m_cSocket.release();
  }
};

// Whether there was an answer.
bool Race() {
  CMsg cIn(1101, 0, 0, MA_GetMsgDic());
  cIn.SetValue("Symbol", "ACME");
  asio::io_context cLoop;
  std::shared_ptr<CLoopCall> apCall[2];
  CCallOrvError cErr;
  bool bAnswered = false;
  for (auto& pCall : apCall) {
    CPendingCall cStarted = CCallOrv::Start(SVC_QUOTE, &cIn, DEADLINE_MS, &cErr);
    if (!cStarted) throw std::runtime_error(cErr.Repr().ToStr());
    pCall = std::make_shared<CLoopCall>(cLoop, std::move(cStarted), [&](CPendingCall p_cCall) {
      CMsg cOut(0, 0, 0, MA_GetMsgDic());
      double dLast = 0;
      if (p_cCall.Finish(&cOut, &cErr) < 0) {
        std::printf("%d %s\n", cErr.GetCode(), cErr.GetText().ToStr());
        return;    // the other one may still answer
      }
      cOut.GetValue("Last", &dLast);
      std::printf("%.2f\n", dLast);
      bAnswered = true;
      for (auto& pOther : apCall) pOther->Cancel();
    });
  }
  for (const auto& pCall : apCall) pCall->Step();
  cLoop.run();
  return bAnswered;
}

}    // namespace

int main(int argc, char** argv) {
  CCallOrvError cErr;
  if (argc != 2) return std::fprintf(stderr, "usage: %s CONFIGURATION\n", argv[0]), EXIT_FAILURE;
  try {
    if (CCallOrv::Initialize(argv[1], &cErr) == 0) return Race() ? EXIT_SUCCESS : EXIT_FAILURE;
    std::fprintf(stderr, "initialisation: %s\n", cErr.GetText().ToStr());
  } catch (const CException& p_c) {
    std::fprintf(stderr, "%s\n", p_c.GetText());
  } catch (const std::exception& p_c) {
    std::fprintf(stderr, "%s\n", p_c.what());
  }
  return EXIT_FAILURE;
}

// Threads that are cancelled.
#ifndef TESTS_SUPPORT_CANCELLED_H
#define TESTS_SUPPORT_CANCELLED_H

#include <pthread.h>

#include <future>
#include <stdexcept>

#ifdef __SANITIZE_ADDRESS__
extern "C" void __asan_handle_no_return();
// Frames that a cancelled thread leaves do not clear their marks around arrays, upon which AddressSanitizer itself
// stumbles when the thread ends.
struct T_ClearMarks {
  ~T_ClearMarks() { __asan_handle_no_return(); }
};
#else
struct T_ClearMarks {};
#endif

// Runs p_fn in a thread of its own, which is cancelled once p_cReady is set; then p_fnThen runs. Whether the
// cancellation ended the thread.
template <class F, class THEN>
bool IsCancelled(F p_fn, std::promise<void>& p_cReady, THEN p_fnThen) {
  const auto fnThread = [](void* p_p) -> void* {
    [[maybe_unused]] const T_ClearMarks cLast;
    (*static_cast<F*>(p_p))();
    return nullptr;
  };
  pthread_t tThread;
  if (pthread_create(&tThread, nullptr, fnThread, &p_fn) != 0) throw std::runtime_error("no thread");
  p_cReady.get_future().wait();
  void* pResult = nullptr;
  const bool bAsked = pthread_cancel(tThread) == 0;
  p_fnThen();
  if (!bAsked || pthread_join(tThread, &pResult) != 0) throw std::runtime_error("not cancelled");
  return pResult == PTHREAD_CANCELED;
}
template <class F>
bool IsCancelled(F p_fn, std::promise<void>& p_cReady) {
  return IsCancelled(p_fn, p_cReady, [] {});
}

#endif

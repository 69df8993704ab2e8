// Threads that are cancelled.
#ifndef TESTS_SUPPORT_CANCELLED_H
#define TESTS_SUPPORT_CANCELLED_H

#include <pthread.h>

#include <future>
#include <stdexcept>

// Runs p_fn in a thread of its own, which is cancelled once p_cReady is set. Whether that ended the thread.
template <class F>
bool IsCancelled(F p_fn, std::promise<void>& p_cReady) {
  const auto fnThread = [](void* p_p) -> void* {
    (*static_cast<F*>(p_p))();
    return nullptr;
  };
  pthread_t tThread;
  if (pthread_create(&tThread, nullptr, fnThread, &p_fn) != 0) throw std::runtime_error("no thread");
  p_cReady.get_future().wait();
  void* pResult = nullptr;
  if (pthread_cancel(tThread) != 0 || pthread_join(tThread, &pResult) != 0) throw std::runtime_error("not cancelled");
  return pResult == PTHREAD_CANCELED;
}

#endif

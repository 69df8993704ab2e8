// Threads with a small stack.
#ifndef TESTS_SUPPORT_SMALL_STACK_H
#define TESTS_SUPPORT_SMALL_STACK_H

#include <pthread.h>

#include <functional>
#include <stdexcept>

// What a thread needs that calls, in all: the C library puts the thread's descriptor and the thread-local variables of
// every library into it. The guard comes on top. Instrumented code needs more.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define IS_INSTRUMENTED 1
#else
#define IS_INSTRUMENTED 0
#endif
enum { SMALL_STACK = (IS_INSTRUMENTED ? 1024 : 40) * 1024 };

// Runs p_fn in a thread with a stack of p_uBytes, which stands at p_pStack unless that is null.
inline void OnSmallStack(const std::function<void()>& p_fn, size_t p_uBytes = SMALL_STACK, void* p_pStack = nullptr) {
  const auto fnRun = [](void* p_p) -> void* {
    (*static_cast<const std::function<void()>*>(p_p))();
    return nullptr;
  };
  pthread_attr_t tAttr;
  pthread_t tThread;
  pthread_attr_init(&tAttr);
  if ((p_pStack != nullptr ? pthread_attr_setstack(&tAttr, p_pStack, p_uBytes)
                           : pthread_attr_setstacksize(&tAttr, p_uBytes)) != 0 ||
      pthread_create(&tThread, &tAttr, fnRun, const_cast<std::function<void()>*>(&p_fn)) != 0) {
    throw std::runtime_error("no thread");
  }
  pthread_attr_destroy(&tAttr);
  pthread_join(tThread, nullptr);
}

#endif

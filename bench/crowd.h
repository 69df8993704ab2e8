// Threads that do the same thing at the same time, again and again.
#ifndef BENCH_CROWD_H
#define BENCH_CROWD_H

#include <pthread.h>

#include <functional>
#include <thread>
#include <vector>

class CCrowd {
 public:
  explicit CCrowd(int p_iThreads) {
    pthread_barrier_init(&m_tBarrier, nullptr, static_cast<unsigned>(p_iThreads) + 1);
    for (int i = 0; i < p_iThreads; ++i) m_cThreads.emplace_back([this] { Work(); });
  }
  ~CCrowd() {
    m_bEnd = true;
    pthread_barrier_wait(&m_tBarrier);
    for (std::thread& cThread : m_cThreads) cThread.join();
    pthread_barrier_destroy(&m_tBarrier);
  }
  CCrowd(const CCrowd&) = delete;
  CCrowd& operator=(const CCrowd&) = delete;

  // Comes back when every thread has called p_fnWork once.
  void Run(std::function<void()> p_fnWork) {
    m_fnWork = std::move(p_fnWork);
    pthread_barrier_wait(&m_tBarrier);
    pthread_barrier_wait(&m_tBarrier);
  }

 private:
  pthread_barrier_t m_tBarrier;
  std::function<void()> m_fnWork;
  bool m_bEnd = false;
  std::vector<std::thread> m_cThreads;

  void Work() {
    for (;;) {
      pthread_barrier_wait(&m_tBarrier);
      if (m_bEnd) return;
      m_fnWork();
      pthread_barrier_wait(&m_tBarrier);
    }
  }
};

#endif

// Things that are dear to make, kept for the next one who needs one.
#ifndef CALLORV_BASE_KEPT_H
#define CALLORV_BASE_KEPT_H

#include <atomic>

namespace callorv::detail {

// At most SLOTS things, taken and put back by any thread with one atomic exchange, so threads never wait for each
// other. Nothing is made or destroyed here.
template <class T, int SLOTS>
class CKept {
 public:
  T* Take() {    // null when none is kept
    for (auto& pSlot : m_apSlot) {
      if (pSlot.load(std::memory_order_relaxed) == nullptr) continue;
      if (T* p = pSlot.exchange(nullptr, std::memory_order_acquire)) return p;
    }
    return nullptr;
  }
  bool Put(T* p_p) {    // false when all slots are taken: it is still the caller's
    for (auto& pSlot : m_apSlot) {
      T* pEmpty = nullptr;
      if (pSlot.load(std::memory_order_relaxed) == nullptr &&
          pSlot.compare_exchange_strong(pEmpty, p_p, std::memory_order_release, std::memory_order_relaxed)) {
        return true;
      }
    }
    return false;
  }

 private:
  std::atomic<T*> m_apSlot[SLOTS] = {};
};

}    // namespace callorv::detail

#endif

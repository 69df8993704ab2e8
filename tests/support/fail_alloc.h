// Makes a chosen allocation fail.
//
// Every test program is linked so that these count: operator new in all its forms, wherever it is called, in the
// program or in a shared library; and malloc, calloc, realloc and strdup where our own code calls them (what libc and
// other libraries take through malloc is left alone). Only the thread that armed the failure is touched.
// Sanitizers keep checking that memory is given back the way it was taken. Clang's AddressSanitizer needs
// -shared-libasan for it, valgrind --soname-synonyms=somalloc=nouserintercepts.
//
//   const int iFailures = ForEachFailure([](CFailAlloc& p_cFail) {
//     CStream stText(0, 1);                                       // set-up: nothing fails yet
//     int iRet = 0;
//     const bool bThrew = p_cFail.Run([&] { iRet = stText.AppendData("abc", 3); });
//     CHECK_FALSE(bThrew);
//     CHECK(iRet == (p_cFail.HasFailed() ? -1 : 0));              // the last run of all has no failure
//   });
//   CHECK(iFailures == 1);                                        // that many allocations lie in the tested call
#ifndef TESTS_SUPPORT_FAIL_ALLOC_H
#define TESTS_SUPPORT_FAIL_ALLOC_H

#include <cstddef>
#include <new>

// Counts the allocations of this thread while armed, and makes one or more of them fail. Keep CHECKs outside the armed
// stretch: they allocate. At most one object is armed at a time in a thread.
class CFailAlloc {
 public:
  // p_iNth    the first allocation to fail, counted from 1; 0: none fails, they are just counted
  // p_iCount  how many fail one after the other: 1 for a lone failure, INT_MAX for memory that is used up
  explicit CFailAlloc(int p_iNth = 0, int p_iCount = 1);
  ~CFailAlloc();    // disarms
  CFailAlloc(const CFailAlloc&) = delete;
  CFailAlloc& operator=(const CFailAlloc&) = delete;

  void Arm();
  void Disarm();

  // Runs p_fnCall armed. True when std::bad_alloc came out of it; other exceptions pass through. Disarmed in any case.
  template <class FN>
  bool Run(FN p_fnCall) {
    Arm();
    try {
      p_fnCall();
    } catch (const std::bad_alloc&) {
      Disarm();
      return true;
    } catch (...) {
      Disarm();
      throw;
    }
    Disarm();
    return false;
  }

  bool HasFailed() const { return m_bFailed; }
  int GetCount() const { return m_iCount; }         // allocations asked for while armed, failed ones too
  size_t GetBytes() const { return m_uBytes; }      // their sizes together
  int GetFreedArrays() const { return m_iFreedArrays; }    // what delete[] gave back while armed

  static bool OnAlloc(size_t p_uBytes);    // for the allocation functions: whether this one has to fail
  static void OnFreeArray();

 private:
  int m_iNth, m_iFail;
  int m_iCount;
  int m_iFreedArrays = 0;
  size_t m_uBytes;
  bool m_bFailed;
};

// Calls p_fnTest(CFailAlloc&) with the first allocation to fail, then with the second and so on, until a run passes in
// which nothing failed. Returns the number of runs with a failure.
template <class FN>
int ForEachFailure(FN p_fnTest) {
  for (int i = 1;; ++i) {
    CFailAlloc cFail(i);
    p_fnTest(cFail);
    if (!cFail.HasFailed()) return i - 1;
  }
}

#endif

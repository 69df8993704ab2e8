// What a reader gives back is handed out again, and all of it goes back in the end.
#include "xml/reader_memory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <xercesc/util/OutOfMemoryException.hpp>

#include "support/test_dic.h"

using callorv::detail::CReaderMemory;
using xercesc::XMLPlatformUtils;

namespace {

// Counts the blocks that are out.
class CCountingMemory : public xercesc::MemoryManager {
 public:
  void* allocate(XMLSize_t p_uSize) override {
    void* p = malloc(p_uSize);
    if (p == nullptr) throw xercesc::OutOfMemoryException();
    m_cOut.insert(p);
    return p;
  }
  void deallocate(void* p_p) override {
    m_cOut.erase(p_p);
    free(p_p);
  }
  xercesc::MemoryManager* getExceptionMemoryManager() override { return this; }
  size_t Out() const { return m_cOut.size(); }

 private:
  std::set<void*> m_cOut;
};

// The parser, initialised with that memory.
struct T_CountedParser {
  CCountingMemory cMemory;
  T_CountedParser() { XMLPlatformUtils::Initialize("en_US", nullptr, nullptr, &cMemory); }
  ~T_CountedParser() { XMLPlatformUtils::Terminate(); }
};

}    // namespace

TEST_CASE("a block is as long as asked for, and at most a quarter longer") {
  unsigned uClass = 0;
  for (unsigned uSize = 1; uSize <= CReaderMemory::LARGEST; ++uSize) {
    const unsigned uOf = CReaderMemory::ClassOf(uSize), uLength = CReaderMemory::SizeOf(uOf);
    REQUIRE((uOf == uClass || uOf == uClass + 1));
    REQUIRE(uLength >= uSize);
    REQUIRE((uLength == CReaderMemory::SMALLEST || uLength <= uSize + uSize / 4));
    REQUIRE(CReaderMemory::ClassOf(uLength) == uOf);
    uClass = uOf;
  }
  CHECK(uClass + 1 == CReaderMemory::CLASSES);
}

TEST_CASE("what is given back is handed out again to whoever asks for about as much") {
  T_CountedParser tParser;
  const size_t uBefore = tParser.cMemory.Out();
  {
    CReaderMemory cMemory;
    void* p = cMemory.allocate(1000);
    CHECK(reinterpret_cast<uintptr_t>(p) % alignof(std::max_align_t) == 0);
    memset(p, 1, 1000);
    cMemory.deallocate(p);
    CHECK(cMemory.allocate(1024) == p);
    void* pOther = cMemory.allocate(1024);
    CHECK(pOther != p);
    cMemory.deallocate(p);
    cMemory.deallocate(pOther);
    cMemory.deallocate(nullptr);
    CHECK(tParser.cMemory.Out() == uBefore + 2);
  }
  CHECK(tParser.cMemory.Out() == uBefore);
}

TEST_CASE("what is never given back goes back in the end") {
  T_CountedParser tParser;
  const size_t uBefore = tParser.cMemory.Out();
  {
    CReaderMemory cMemory;
    for (int iSize : {1, 64, 1000, 1000, +CReaderMemory::LARGEST}) cMemory.allocate(static_cast<XMLSize_t>(iSize));
    cMemory.deallocate(cMemory.allocate(64));
    CHECK(tParser.cMemory.Out() == uBefore + 6);
  }
  CHECK(tParser.cMemory.Out() == uBefore);
}

TEST_CASE("a very long block goes back at once") {
  T_CountedParser tParser;
  const size_t uBefore = tParser.cMemory.Out();
  CReaderMemory cMemory;
  void* p = cMemory.allocate(CReaderMemory::LARGEST + 1);
  CHECK(tParser.cMemory.Out() == uBefore + 1);
  cMemory.deallocate(p);
  CHECK(tParser.cMemory.Out() == uBefore);
}

TEST_CASE("an exception may outlive a reader's memory") {
  T_CountedParser tParser;
  CReaderMemory cMemory;
  CHECK(cMemory.getExceptionMemoryManager() == &tParser.cMemory);
}

// Memory of one reader of the parser.
#ifndef CALLORV_XML_READER_MEMORY_H
#define CALLORV_XML_READER_MEMORY_H

#include <cstddef>
#include <utility>
#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/util/PlatformUtils.hpp>

namespace callorv::detail {

// What the reader gives back is kept for it in lists by size, as every document asks for the same again: fifty blocks
// and one of 164 KB for the shortest. It holds what its longest document needed at once, and gives all of it back when
// it goes, with what the parser has lost: its constructors leave blocks behind when they fail. Like its reader, it
// serves one thread at a time. Blocks come from the memory manager that the parser was initialised with.
class CReaderMemory final : public xercesc::MemoryManager {
 public:
  CReaderMemory() = default;
  ~CReaderMemory() override {
    while (m_pNewest != nullptr) Source()->deallocate(std::exchange(m_pNewest, m_pNewest->pOlder));
  }
  CReaderMemory(const CReaderMemory&) = delete;
  CReaderMemory& operator=(const CReaderMemory&) = delete;

  // An exception may outlive the reader.
  xercesc::MemoryManager* getExceptionMemoryManager() override { return Source(); }

  void* allocate(XMLSize_t p_uSize) override {
    if (p_uSize > LARGEST) return New(p_uSize) + 1;
    const unsigned uClass = ClassOf(static_cast<unsigned>(p_uSize));
    T_Block* pBlock = m_apFree[uClass];
    if (pBlock != nullptr) {
      m_apFree[uClass] = pBlock->pNextFree;
    } else {
      pBlock = New(SizeOf(uClass));
      pBlock->pOlder = std::exchange(m_pNewest, pBlock);
    }
    pBlock->uSize = SizeOf(uClass);
    return pBlock + 1;
  }

  void deallocate(void* p_p) override {
    if (p_p == nullptr) return;
    T_Block* pBlock = static_cast<T_Block*>(p_p) - 1;
    if (pBlock->uSize > LARGEST) {
      m_uHeld -= pBlock->uSize;
      Source()->deallocate(pBlock);
    } else {
      pBlock->pNextFree = std::exchange(m_apFree[ClassOf(static_cast<unsigned>(pBlock->uSize))], pBlock);
    }
  }

  XMLSize_t Held() const { return m_uHeld; }    // bytes, in use or not

  // The size classes: 64 bytes, then four to each doubling. Longer blocks than the largest are not kept.
  enum { SMALLEST = 64, LARGEST = 256 * 1024, CLASSES = 1 + 4 * 12 };
  static unsigned ClassOf(unsigned p_uSize) {
    if (p_uSize <= SMALLEST) return 0;
    const unsigned uBit = 31u - static_cast<unsigned>(__builtin_clz(p_uSize - 1));
    return (uBit - 6) * 4 + ((p_uSize - 1) >> (uBit - 2) & 3) + 1;
  }
  static unsigned SizeOf(unsigned p_uClass) {
    return p_uClass == 0 ? +SMALLEST : (5 + (p_uClass - 1) % 4) << ((p_uClass - 1) / 4 + 4);
  }

 private:
  struct alignas(std::max_align_t) T_Block {    // its bytes stand behind it
    T_Block* pOlder;                            // of those that are kept
    union {
      XMLSize_t uSize;         // in use
      T_Block* pNextFree;      // not in use
    };
  };
  T_Block* m_pNewest = nullptr;
  T_Block* m_apFree[CLASSES] = {};
  XMLSize_t m_uHeld = 0;

  T_Block* New(XMLSize_t p_uSize) {
    auto* pBlock = static_cast<T_Block*>(Source()->allocate(sizeof(T_Block) + p_uSize));
    pBlock->uSize = p_uSize;
    m_uHeld += p_uSize;
    return pBlock;
  }
  static xercesc::MemoryManager* Source() { return xercesc::XMLPlatformUtils::fgMemoryManager; }
};

}    // namespace callorv::detail

#endif

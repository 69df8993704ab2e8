// The MD5 message digest (RFC 1321).
#include "callorv/crypt/md5.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace {

// floor(2^32 * |sin(i + 1)|)
constexpr uint32_t s_aiSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
// By round and step modulo 4.
constexpr int s_aiShift[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

enum { BLOCK = 64, LENGTH = 8 };

// One of the 64 steps, with everything but the data known to the compiler. What the algorithm calls A to D changes
// places in p_aiState instead of its content.
template <size_t STEP>
[[gnu::always_inline]] inline void Step(uint32_t (&p_aiState)[4], const uint32_t (&p_aiWord)[16]) {
  uint32_t& iA = p_aiState[(64 - STEP) % 4];
  const uint32_t iB = p_aiState[(65 - STEP) % 4], iC = p_aiState[(66 - STEP) % 4], iD = p_aiState[(67 - STEP) % 4];
  constexpr size_t iRound = STEP / 16;
  constexpr size_t iWord = (iRound == 0   ? STEP
                            : iRound == 1 ? 5 * STEP + 1
                            : iRound == 2 ? 3 * STEP + 5
                                          : 7 * STEP) %
                           16;
  const uint32_t iF = iRound == 0   ? (iB & iC) | (~iB & iD)
                      : iRound == 1 ? (iB & iD) | (iC & ~iD)
                      : iRound == 2 ? iB ^ iC ^ iD
                                    : iC ^ (iB | ~iD);
  const uint32_t iSum = iA + iF + p_aiWord[iWord] + s_aiSine[STEP];
  constexpr int iShift = s_aiShift[iRound][STEP % 4];
  iA = iB + (iSum << iShift | iSum >> (32 - iShift));
}

template <size_t... STEP>
[[gnu::always_inline]] inline void Steps(uint32_t (&p_aiState)[4], const uint32_t (&p_aiWord)[16],
                                         std::index_sequence<STEP...>) {
  (Step<STEP>(p_aiState, p_aiWord), ...);
}

}    // namespace

void MD5::init() noexcept {
  m_aiState[0] = 0x67452301;
  m_aiState[1] = 0xefcdab89;
  m_aiState[2] = 0x98badcfe;
  m_aiState[3] = 0x10325476;
  m_iBytes = 0;
  m_bFinal = false;
  memset(m_abDigest, 0, sizeof(m_abDigest));
  memset(m_szHex, '0', sizeof(m_szHex) - 1);
  m_szHex[sizeof(m_szHex) - 1] = 0;
}

void MD5::Transform(const unsigned char* p_pBlock) noexcept {
  uint32_t aiWord[16];
  for (int i = 0; i < 16; ++i) {
    const unsigned char* p = p_pBlock + 4 * i;
    aiWord[i] = p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
  }
  uint32_t aiState[4];
  memcpy(aiState, m_aiState, sizeof aiState);
  Steps(aiState, aiWord, std::make_index_sequence<64>());
  for (int i = 0; i < 4; ++i) m_aiState[i] += aiState[i];
}

void MD5::update(const unsigned char* p_pData, unsigned int p_iLen) noexcept {
  while (p_iLen > 0) {
    const auto iUsed = static_cast<unsigned>(m_iBytes % BLOCK), iNow = std::min(p_iLen, BLOCK - iUsed);
    memcpy(m_abBlock + iUsed, p_pData, iNow);
    if (iUsed + iNow == BLOCK) Transform(m_abBlock);
    m_iBytes += iNow;
    p_pData += iNow;
    p_iLen -= iNow;
  }
}

void MD5::update(const char* p_pData, unsigned int p_iLen) noexcept {
  update(reinterpret_cast<const unsigned char*>(p_pData), p_iLen);
}

void MD5::finalize() noexcept {
  if (m_bFinal) return;
  // one bit, zeros, and the length in bits, up to the end of a block
  static const unsigned char s_abPadding[BLOCK] = {0x80};
  unsigned char abLength[LENGTH];
  for (int i = 0; i < LENGTH; ++i) abLength[i] = static_cast<unsigned char>(m_iBytes * 8 >> (8 * i));
  const auto iUsed = static_cast<unsigned>(m_iBytes % BLOCK);
  update(s_abPadding, (iUsed < BLOCK - LENGTH ? BLOCK : 2 * BLOCK) - LENGTH - iUsed);
  update(abLength, LENGTH);
  m_bFinal = true;
  static const char s_szDigits[] = "0123456789abcdef";
  for (int i = 0; i < DIGEST_SIZE; ++i) {
    m_abDigest[i] = static_cast<unsigned char>(m_aiState[i / 4] >> (8 * (i % 4)));
    m_szHex[2 * i] = s_szDigits[m_abDigest[i] >> 4];
    m_szHex[2 * i + 1] = s_szDigits[m_abDigest[i] & 15];
  }
}

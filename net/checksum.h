// The sum of bytes.
#ifndef CALLORV_NET_CHECKSUM_H
#define CALLORV_NET_CHECKSUM_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#if defined(__i386__) || defined(__x86_64__)
#include <emmintrin.h>
#define CALLORV_SSE2
#endif

namespace callorv::detail {

// The bytes from p_pData on, added up; wraps around. Four at a time: uEven adds up bytes 0 and 2 in two 16-bit halves;
// taken from the sum of the words it leaves bytes 1 and 3, one place higher. 256 words cannot overflow a half.
inline uint32_t SumPlainly(const char* p_pData, size_t p_uLen) {
  uint32_t uSum = 0;
  while (p_uLen >= 4) {
    const size_t uWords = p_uLen / 4 < 256 ? p_uLen / 4 : 256;
    uint32_t uAll = 0;
    uint32_t uEven = 0;
#pragma GCC unroll 4    // 1.7 times as fast on i686
    for (size_t i = 0; i < uWords; ++i) {
      uint32_t uWord;
      memcpy(&uWord, p_pData + 4 * i, 4);
      uAll += uWord;
      uEven += uWord & 0x00FF00FF;
    }
    const uint32_t uOdd = (uAll - uEven) >> 8;
    uSum += uEven + (uEven >> 16) + uOdd + (uOdd >> 16);
    p_pData += 4 * uWords;
    p_uLen -= 4 * uWords;
  }
  for (; p_uLen > 0; --p_uLen) uSum += static_cast<unsigned char>(*p_pData++);
  return uSum;
}

#ifdef CALLORV_SSE2
// The same where the processor has SSE2, of which psadbw adds up 8 bytes at a time; two sums, as each addition waits
// for the one before. A 32-bit program may have left the stack less aligned than such a function expects it.
[[gnu::target("sse2"), gnu::noinline]]
#ifdef __i386__
[[gnu::force_align_arg_pointer]]
#endif
inline uint32_t SumBySse2(const char* p_pData, size_t p_uLen) {
  const __m128i tZero = _mm_setzero_si128();
  __m128i atSum[2] = {tZero, tZero};
  for (; p_uLen >= 32; p_uLen -= 32, p_pData += 32) {
    for (int i = 0; i < 2; ++i) {
      const __m128i tBytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p_pData) + i);
      atSum[i] = _mm_add_epi64(atSum[i], _mm_sad_epu8(tBytes, tZero));
    }
  }
  const __m128i tSum = _mm_add_epi64(atSum[0], atSum[1]);
  const int iSum = _mm_cvtsi128_si32(_mm_add_epi64(tSum, _mm_srli_si128(tSum, 8)));
  return static_cast<uint32_t>(iSum) + SumPlainly(p_pData, p_uLen);
}
#endif

inline uint32_t Sum(const char* p_pData, size_t p_uLen) {
#if defined(__SSE2__)
  return SumBySse2(p_pData, p_uLen);
#elif defined(CALLORV_SSE2)
  return __builtin_cpu_supports("sse2") ? SumBySse2(p_pData, p_uLen) : SumPlainly(p_pData, p_uLen);
#else
  return SumPlainly(p_pData, p_uLen);
#endif
}

}    // namespace callorv::detail

#endif

// The byte sum.
#include <doctest/doctest.h>

#include <climits>
#include <string>

#include "net/checksum.h"
#include "open_adaptor.h"

namespace {

int NaiveSum(const char* p_p, size_t p_uLen) {
  unsigned uSum = 0;
  for (size_t i = 0; i < p_uLen; ++i) uSum += static_cast<unsigned char>(p_p[i]);
  return static_cast<int>(uSum % 256);
}

// What CalcCheckSum says, and the way of processors without SSE2; -1 when they differ.
int BothWays(const char* p_p, size_t p_uLen) {
  const int iSum = CAdaptor::CalcCheckSum(p_p, static_cast<int>(p_uLen));
  return iSum == static_cast<int>(callorv::detail::SumPlainly(p_p, p_uLen) % 256) ? iSum : -1;
}

}    // namespace

TEST_CASE("CalcCheckSum: no bytes") {
  CHECK(CAdaptor::CalcCheckSum("abc", 0) == 0);
  CHECK(CAdaptor::CalcCheckSum("abc", -1) == 0);
  CHECK(CAdaptor::CalcCheckSum("abc", INT_MIN) == 0);
  CHECK(CAdaptor::CalcCheckSum(nullptr, 0) == 0);
}

TEST_CASE("CalcCheckSum counts bytes as unsigned, modulo 256") {
  CHECK(CAdaptor::CalcCheckSum("\xFF\x02", 2) == 1);
  CHECK(CAdaptor::CalcCheckSum("\xFF", 1) == 255);
  CHECK(CAdaptor::CalcCheckSum("\x80\x80", 2) == 0);
  CHECK(CAdaptor::CalcCheckSum("a\0b", 3) == 195);
  CHECK(CAdaptor::CalcCheckSum("QMX-SSP-V1.0", 12) == 43);
}

TEST_CASE("CalcCheckSum at every length and alignment") {
  const std::string sBytes = Noise(3000);
  for (size_t uAt = 0; uAt < 17; ++uAt) {
    for (size_t uLen = 0; uLen < 300; ++uLen) {
      const int iSum = BothWays(sBytes.data() + uAt, uLen);
      if (iSum != NaiveSum(sBytes.data() + uAt, uLen)) FAIL("at " << uAt << ", length " << uLen);
    }
  }
  for (size_t uLen = 1000; uLen < 2100; ++uLen) {
    const int iSum = BothWays(sBytes.data() + 1, uLen);
    if (iSum != NaiveSum(sBytes.data() + 1, uLen)) FAIL("length " << uLen);
  }
}

TEST_CASE("CalcCheckSum of large and of largest bytes") {
  const std::string sNoise = Noise(5000001);
  CHECK(BothWays(sNoise.data(), 5000001) == NaiveSum(sNoise.data(), 5000001));
  const std::string sFull(20000003, '\xFF');
  CHECK(BothWays(sFull.data(), 20000003) == NaiveSum(sFull.data(), 20000003));
  for (const size_t uLen : {1023u, 1024u, 1025u, 1028u, 2048u, 4096u}) {
    CAPTURE(uLen);
    CHECK(BothWays(sFull.data(), uLen) == NaiveSum(sFull.data(), uLen));
  }
}

// The SEED block cipher (RFC 4269).
#include "crypt/seed.h"

#include <array>
#include <cstdint>

namespace callorv::detail {

namespace {

using Table = std::array<uint32_t, 256>;

// The field GF(2^8) modulo x^8 + x^6 + x^5 + x + 1.
constexpr unsigned Multiply(unsigned p_iA, unsigned p_iB) {
  unsigned iProduct = 0;
  for (; p_iB != 0; p_iB >>= 1) {
    if (p_iB & 1) iProduct ^= p_iA;
    p_iA <<= 1;
    if (p_iA & 0x100) p_iA ^= 0x163;
  }
  return iProduct;
}

constexpr unsigned Power(unsigned p_iBase, unsigned p_iExponent) {
  unsigned iPower = 1;
  for (; p_iExponent != 0; p_iExponent >>= 1) {
    if (p_iExponent & 1) iPower = Multiply(iPower, p_iBase);
    p_iBase = Multiply(p_iBase, p_iBase);
  }
  return iPower;
}

// An S-box is an affine map of a power: the columns of its matrix (that of bit 0 first), the exponent and the constant.
struct T_SBox {
  unsigned char abColumn[8];
  unsigned iExponent, iConstant;

  constexpr unsigned operator()(unsigned p_iX) const {
    const unsigned iPower = Power(p_iX, iExponent);
    unsigned iY = iConstant;
    for (int i = 0; i < 8; ++i) {
      if (iPower >> i & 1) iY ^= abColumn[i];
    }
    return iY;
  }
};
constexpr T_SBox s_tS1{{0x2C, 0xD0, 0x69, 0xC2, 0x41, 0x44, 0x58, 0xE2}, 247, 169};
constexpr T_SBox s_tS2{{0xD0, 0x2A, 0xE1, 0x2C, 0x21, 0x30, 0xA2, 0x6C}, 251, 56};

// SS0 to SS3: an S-box and the permutation behind it in one. Byte j of an entry of table i is the S-box's output under
// mask (i + j) mod 4.
constexpr Table MakeTable(const T_SBox& p_tBox, unsigned p_iBox) {
  constexpr unsigned aiMask[4] = {0xFC, 0xF3, 0xCF, 0x3F};
  Table tTable{};
  for (unsigned iX = 0; iX < 256; ++iX) {
    const unsigned iY = p_tBox(iX);
    for (unsigned j = 0; j < 4; ++j) tTable[iX] |= (iY & aiMask[(p_iBox + j) % 4]) << (8 * j);
  }
  return tTable;
}
constexpr Table SS0 = MakeTable(s_tS1, 0), SS1 = MakeTable(s_tS2, 1);
constexpr Table SS2 = MakeTable(s_tS1, 2), SS3 = MakeTable(s_tS2, 3);

uint32_t G(uint32_t p_i) {
  return SS0[p_i & 0xFF] ^ SS1[p_i >> 8 & 0xFF] ^ SS2[p_i >> 16 & 0xFF] ^ SS3[p_i >> 24];
}

uint32_t Load(const unsigned char* p_p) {
  return uint32_t{p_p[0]} << 24 | uint32_t{p_p[1]} << 16 | uint32_t{p_p[2]} << 8 | p_p[3];
}

void Store(unsigned char* p_p, uint32_t p_i) {
  for (int i = 0; i < 4; ++i) p_p[i] = static_cast<unsigned char>(p_i >> (24 - 8 * i));
}

// The sixteen rounds with the round keys from p_iFirst on, p_iStep words from round to round.
void Crypt(unsigned char* p_pBlock, const unsigned long* p_aiRoundKeys, int p_iFirst, int p_iStep) {
  uint32_t iL0 = Load(p_pBlock), iL1 = Load(p_pBlock + 4), iR0 = Load(p_pBlock + 8), iR1 = Load(p_pBlock + 12);
  for (int iRound = 0, iKey = p_iFirst; iRound < 16; ++iRound, iKey += p_iStep) {
    uint32_t iT0 = iR0 ^ static_cast<uint32_t>(p_aiRoundKeys[iKey]);
    uint32_t iT1 = G(iT0 ^ iR1 ^ static_cast<uint32_t>(p_aiRoundKeys[iKey + 1]));
    iT0 = G(iT0 + iT1);
    iT1 = G(iT1 + iT0);
    iT0 += iT1;
    const uint32_t iNew0 = iL0 ^ iT0, iNew1 = iL1 ^ iT1;
    iL0 = iR0;
    iL1 = iR1;
    iR0 = iNew0;
    iR1 = iNew1;
  }
  Store(p_pBlock, iR0);
  Store(p_pBlock + 4, iR1);
  Store(p_pBlock + 8, iL0);
  Store(p_pBlock + 12, iL1);
}

}    // namespace

void SeedRoundKey(unsigned long* p_aiRoundKeys, const unsigned char* p_pKey) {
  uint64_t iLeft = uint64_t{Load(p_pKey)} << 32 | Load(p_pKey + 4);
  uint64_t iRight = uint64_t{Load(p_pKey + 8)} << 32 | Load(p_pKey + 12);
  uint32_t iConstant = 0x9E3779B9;    // the golden ratio, turned by one bit for each round
  for (int i = 0; i < 16; ++i, iConstant = iConstant << 1 | iConstant >> 31) {
    const auto iA = static_cast<uint32_t>(iLeft >> 32), iB = static_cast<uint32_t>(iLeft);
    const auto iC = static_cast<uint32_t>(iRight >> 32), iD = static_cast<uint32_t>(iRight);
    p_aiRoundKeys[2 * i] = G(iA + iC - iConstant);
    p_aiRoundKeys[2 * i + 1] = G(iB - iD + iConstant);
    if (i % 2 == 0) {
      iLeft = iLeft >> 8 | iLeft << 56;
    } else {
      iRight = iRight << 8 | iRight >> 56;
    }
  }
}

void SeedEncrypt(unsigned char* p_pBlock, const unsigned long* p_aiRoundKeys) {
  Crypt(p_pBlock, p_aiRoundKeys, 0, 2);
}

void SeedDecrypt(unsigned char* p_pBlock, const unsigned long* p_aiRoundKeys) {
  Crypt(p_pBlock, p_aiRoundKeys, 30, -2);
}

}    // namespace callorv::detail

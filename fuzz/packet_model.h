// What a packet's bytes mean, worked out without the library's reader.
#ifndef FUZZ_PACKET_MODEL_H
#define FUZZ_PACKET_MODEL_H

#include <cstdint>
#include <string>

#include "callorv/net/tcp_adaptor.h"

// What follows a packet's bytes: the peer closed, waits, or went away without reading what it was sent.
enum E_End { END_CLOSED, END_STALLED, END_RESET };

struct T_Outcome {
  int iCode = 0;
  std::string sText;    // GetLastError()
  int iSvcNum = 0, iMsgNum = 0, iExtra = 0;    // when iCode is 0, with all below
  std::string sTimeStamp, sUserKey, sAux13, sAux8, sAux21, sBody;
  bool bCompressed = false;
};

// The packet that an input makes. Its first byte says what is put right in the bytes behind it, for guessing a checksum
// takes a fuzzer long.
std::string PacketOf(const uint8_t* p_pData, size_t p_uSize);
enum E_PacketBits {
  FIX_BEGIN = 1, FIX_LENGTHS = 2, FIX_CHECKSUM = 4, COMPRESS_BODY = 8,
  CLOSE_AFTER = 16, RESET_AFTER = 32    // what the peer does
};

// What reading the packet must come to.
T_Outcome ReadModel(const std::string& p_sPacket, E_End p_eEnd);
// Ends the process unless a reader came to that.
void ExpectOutcome(int p_iCode, CAdaptor& p_cAdaptor, const CAdaptor::T_PacketInfo& p_tInfo,
                   const T_Outcome& p_tShould);

#endif

// A packet of captured bytes, or bytes between packets.
#ifndef CALLORV_TOOLS_PIECE_H
#define CALLORV_TOOLS_PIECE_H

#include <callorv/net/tcp_adaptor.h>

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

struct T_Piece {
  static constexpr size_t HEADER_SIZE = CTcpAdaptor::HEADER_SIZE;
  static constexpr size_t TRAILER_SIZE = CTcpAdaptor::TRAILER_SIZE;

  size_t iAt = 0;    // where it stands in the input
  std::string_view sBytes;
  bool bPacket = false;    // it begins like one
  size_t iSize = 0;        // what its header says, 0 when it does not
  std::vector<std::string> asWrong;
  std::string sBody;    // of a whole packet, decompressed

  bool HasHeader() const { return bPacket && sBytes.size() >= HEADER_SIZE; }
  bool IsWhole() const { return HasHeader() && sBytes.size() == iSize; }
  std::string_view Header() const { return sBytes.substr(0, HEADER_SIZE); }
  std::string_view Trailer() const { return IsWhole() ? sBytes.substr(iSize - TRAILER_SIZE) : ""; }
};

// What is wrong with a piece, and its body when it is whole.
void Check(T_Piece& p_tPiece);
// The first piece of p_sRest: a packet as long as its header says. When it is broken or its length cannot be true, it
// reaches to where the next begins.
T_Piece FirstPiece(std::string_view p_sRest);

// The header's fields or the bytes, the body, and what is wrong. The user key is masked unless p_bShowKey.
void PrintPiece(std::ostream& p_cOut, const T_Piece& p_tPiece, bool p_bShowKey);
nlohmann::ordered_json ToJson(const T_Piece& p_tPiece, bool p_bShowKey);

#endif

// A packet of captured bytes, or bytes between packets.
#include "decode/piece.h"

#include <algorithm>
#include <iomanip>

#include "common/packet_view.h"
#include "common/text.h"
#include "decode/key_guard.h"

namespace {

constexpr size_t HEADER_SIZE = T_Piece::HEADER_SIZE;

// The bytes of a piece without a whole header, with stars for those that may be a user key.
struct T_Shown {
  std::string sBytes;
  std::vector<bool> abStar;

  T_Shown(std::string_view p_sBytes, bool p_bShowKey) : sBytes(p_sBytes), abStar(p_sBytes.size()) {
    if (!p_bShowKey) abStar = MayBeKey(p_sBytes);
    for (size_t i = 0; i < sBytes.size(); ++i) {
      if (abStar[i]) sBytes[i] = '*';
    }
  }
};

// Sixteen bytes a line: offset, digits, characters. Of many bytes the first only.
void PrintBytes(std::ostream& p_cOut, const T_Shown& p_tShown) {
  constexpr size_t LINE = 16;
  constexpr size_t MOST = 16 * LINE;
  const size_t iSize = p_tShown.sBytes.size();
  for (size_t iAt = 0; iAt < std::min(iSize, MOST); iAt += LINE) {
    const std::string sLine = p_tShown.sBytes.substr(iAt, std::min(LINE, MOST - iAt));
    std::string sDigits;
    for (size_t i = 0; i < sLine.size(); ++i) {
      sDigits += p_tShown.abStar[iAt + i] ? " **" : CFormat(" %02x", static_cast<unsigned char>(sLine[i])).ToStr();
    }
    p_cOut << std::setw(8) << iAt << ' ' << std::left << std::setw(3 * LINE) << sDigits << std::right << "  "
              << Printable(sLine, false) << '\n';
  }
  if (iSize > MOST) p_cOut << "          and " << Counted(iSize - MOST, "byte") << " more\n";
}

}    // namespace

void Check(T_Piece& p_tPiece) {
  const std::string sSize = std::to_string(p_tPiece.sBytes.size());
  if (!p_tPiece.bPacket) {
    const char* szDigits = HoldsHexKey(p_tPiece.sBytes) ? ", but have hexadecimal digits of one" : "";
    p_tPiece.asWrong.push_back(std::string("these bytes do not begin a packet") + szDigits);
  } else if (!p_tPiece.HasHeader()) {
    p_tPiece.asWrong.push_back("the header ends after " + sSize + " of 128 bytes");
  } else if (!p_tPiece.IsWhole()) {
    p_tPiece.asWrong = CheckHeader(p_tPiece.Header());
    if (p_tPiece.iSize > 0) {
      p_tPiece.asWrong.push_back("the packet ends after " + sSize + " of " + std::to_string(p_tPiece.iSize) + " bytes");
    }
  } else {
    CAdaptor::T_PacketInfo tInfo;
    p_tPiece.asWrong = CheckPacket(p_tPiece.sBytes, tInfo);
    p_tPiece.sBody.assign(tInfo.stBody.GetData(), static_cast<size_t>(tInfo.stBody.GetSize()));
  }
}

T_Piece FirstPiece(std::string_view p_sRest) {
  const std::string_view sBegin = CTcpAdaptor::GetBeginString();
  const size_t iNext = std::min(p_sRest.find(sBegin, 1), p_sRest.size());
  T_Piece tPiece;
  tPiece.bPacket = p_sRest.substr(0, sBegin.size()) == sBegin;
  if (p_sRest.size() >= HEADER_SIZE) tPiece.iSize = PacketSize(p_sRest.substr(0, HEADER_SIZE));
  const bool bFits = tPiece.bPacket && tPiece.iSize > 0 && tPiece.iSize <= p_sRest.size();
  tPiece.sBytes = p_sRest.substr(0, bFits ? tPiece.iSize : iNext);
  Check(tPiece);
  if (!tPiece.asWrong.empty() && iNext < tPiece.sBytes.size()) {
    tPiece.sBytes = p_sRest.substr(0, iNext);
    tPiece.sBody.clear();
    tPiece.asWrong.clear();
    Check(tPiece);
  }
  return tPiece;
}

void PrintPiece(std::ostream& p_cOut, const T_Piece& p_tPiece, bool p_bShowKey) {
  if (p_tPiece.HasHeader()) {
    PrintHeader(p_cOut, p_tPiece.Header(), p_tPiece.Trailer(), p_bShowKey);
  } else {
    PrintBytes(p_cOut, {p_tPiece.sBytes, p_bShowKey});
  }
  if (!p_tPiece.sBody.empty()) p_cOut << "  body: " << Printable(p_tPiece.sBody, true) << '\n';
  for (const std::string& s : p_tPiece.asWrong) p_cOut << "  WRONG: " << s << '\n';
}

nlohmann::ordered_json ToJson(const T_Piece& p_tPiece, bool p_bShowKey) {
  nlohmann::ordered_json cPiece{
      {"offset", p_tPiece.iAt}, {"size", p_tPiece.sBytes.size()}, {"packet", p_tPiece.bPacket}};
  if (p_tPiece.HasHeader()) {
    cPiece["header"] = HeaderToJson(p_tPiece.Header(), p_bShowKey);
  } else {
    cPiece["text"] = Printable(T_Shown(p_tPiece.sBytes, p_bShowKey).sBytes, false);
  }
  if (p_tPiece.IsWhole()) {
    cPiece["body"] = ToUtf8(p_tPiece.sBody);
    cPiece["checksum"] = ToUtf8(p_tPiece.Trailer());
  }
  cPiece["wrong"] = p_tPiece.asWrong;
  return cPiece;
}

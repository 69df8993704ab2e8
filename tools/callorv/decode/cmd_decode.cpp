// callorv decode: captured packets, field by field.
#include <callorv/net/tcp_adaptor.h>

#include <iomanip>
#include <iostream>
#include <memory>

#include "command.h"
#include "common/input.h"
#include "common/json_out.h"
#include "common/options.h"
#include "common/packet_view.h"
#include "common/text.h"
#include "decode/capture.h"
#include "decode/key_guard.h"

namespace {

constexpr char s_szFooter[] =
    R"(The input is the packets' bytes one behind the other, or a text of hexadecimal digits, such
as xxd, xxd -p or hexdump -C write. A user key is masked unless --show-key is given. When
something is wrong with a packet it is said below the packet, and the exit status is 1.

Examples:
  callorv decode packets/000001-1201-request.packet
  callorv decode --xml packets/000001-1201-reply.packet > replies/1201.xml
  xxd -p capture.bin | callorv decode --json)";

struct T_Options {
  std::string sFile = "-";
  bool bHex = false;
  bool bBinary = false;
  bool bJson = false;
  bool bXml = false;
  bool bShowKey = false;
};

constexpr size_t HEADER_SIZE = CTcpAdaptor::HEADER_SIZE;
constexpr size_t TRAILER_SIZE = CTcpAdaptor::TRAILER_SIZE;

// One packet of the input, or bytes between packets.
struct T_Piece {
  size_t iAt = 0;
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

std::string ReadBytes(const T_Options& p_tOptions) {
  std::string sInput = ReadWholeFile(p_tOptions.sFile);
  if (p_tOptions.bBinary) return sInput;
  std::string sWhy;
  const std::optional<std::string> sBytes = FromHex(sInput, !p_tOptions.bHex, sWhy);
  // Digits that are taken for the packet itself would show its fields, the user key among them, unhidden.
  const bool bDigits = HoldsHexKey(sInput) && sInput.rfind(CTcpAdaptor::GetBeginString(), 0) != 0;
  if (!sBytes && (p_tOptions.bHex || bDigits)) {
    const char* szTry = p_tOptions.bHex ? "" : "; --binary takes all as it is";
    throw CFailure(InputName(p_tOptions.sFile) + ": " + sWhy + szTry);
  }
  return sBytes.value_or(sInput);
}

// What is wrong with a piece, and its body when it is whole.
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

// The first piece of p_sRest: a packet as long as its header says. When it is broken or its length cannot be true, it
// reaches to where the next begins.
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
void PrintBytes(const T_Shown& p_tShown) {
  constexpr size_t LINE = 16;
  constexpr size_t MOST = 16 * LINE;
  const size_t iSize = p_tShown.sBytes.size();
  for (size_t iAt = 0; iAt < std::min(iSize, MOST); iAt += LINE) {
    const std::string sLine = p_tShown.sBytes.substr(iAt, std::min(LINE, MOST - iAt));
    std::string sDigits;
    for (size_t i = 0; i < sLine.size(); ++i) {
      sDigits += p_tShown.abStar[iAt + i] ? " **" : CFormat(" %02x", static_cast<unsigned char>(sLine[i])).ToStr();
    }
    std::cout << std::setw(8) << iAt << ' ' << std::left << std::setw(3 * LINE) << sDigits << std::right << "  "
              << Printable(sLine, false) << '\n';
  }
  if (iSize > MOST) std::cout << "          and " << Counted(iSize - MOST, "byte") << " more\n";
}

void PrintText(const T_Piece& p_tPiece, size_t p_iNumber, bool p_bShowKey) {
  std::cout << (p_tPiece.bPacket ? "packet " + std::to_string(p_iNumber) : "not a packet") << ": bytes " << p_tPiece.iAt
            << " to " << p_tPiece.iAt + p_tPiece.sBytes.size() - 1 << '\n';
  if (p_tPiece.HasHeader()) {
    PrintHeader(std::cout, p_tPiece.Header(), p_tPiece.Trailer(), p_bShowKey);
  } else {
    PrintBytes({p_tPiece.sBytes, p_bShowKey});
  }
  if (!p_tPiece.sBody.empty()) std::cout << "  body: " << Printable(p_tPiece.sBody, true) << '\n';
  for (const std::string& s : p_tPiece.asWrong) std::cout << "  WRONG: " << s << '\n';
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

// p_cPackets: where they go with --json.
void Decode(const T_Options& p_tOptions, nlohmann::ordered_json& p_cPackets) {
  const std::string sBytes = ReadBytes(p_tOptions);
  const std::string sInput = InputName(p_tOptions.sFile);
  if (sBytes.empty()) throw CFailure(sInput + ": no bytes");
  size_t iPackets = 0;
  size_t iBroken = 0;
  for (size_t iAt = 0; iAt < sBytes.size();) {
    T_Piece tPiece = FirstPiece(std::string_view(sBytes).substr(iAt));
    tPiece.iAt = iAt;
    iAt += tPiece.sBytes.size();
    iPackets += tPiece.bPacket;
    iBroken += !tPiece.asWrong.empty();
    if (p_tOptions.bJson) {
      p_cPackets.push_back(ToJson(tPiece, p_tOptions.bShowKey));
    } else if (p_tOptions.bXml) {
      if (tPiece.IsWhole()) std::cout << tPiece.sBody << '\n';
    } else {
      PrintText(tPiece, iPackets, p_tOptions.bShowKey);
    }
  }
  std::cout.flush();
  if (iPackets == 0) throw CFailure(sInput + ": no packet in it");
  if (iBroken > 0) {
    throw CFailure(sInput + ": " + std::to_string(iBroken) + " broken among " + Counted(iPackets, "packet"));
  }
}

void Decode(const T_Options& p_tOptions) {
  nlohmann::ordered_json cUnused;
  if (!p_tOptions.bJson) return Decode(p_tOptions, cUnused);
  PrintObject([&](nlohmann::ordered_json& p_cObject) {
    Decode(p_tOptions, p_cObject["packets"] = nlohmann::ordered_json::array());
  });
}

}    // namespace

void AddDecode(CLI::App& p_cApp) {
  auto pOptions = std::make_shared<T_Options>();
  T_Options& t = *pOptions;
  CLI::App* pCommand = p_cApp.add_subcommand("decode", "Print captured packets field by field");
  pCommand->add_option("FILE", t.sFile, "Captured bytes; - is standard input")->capture_default_str();
  CLI::Option* pHex = pCommand->add_flag("--hex", t.bHex, "The input is hexadecimal digits");
  pCommand->add_flag("--binary", t.bBinary, "The input is the bytes themselves")->excludes(pHex);
  CLI::Option* pJson = pCommand->add_flag("--json", t.bJson, "Print JSON");
  pCommand->add_flag("--xml", t.bXml, "Print the bodies alone")->excludes(pJson);
  pCommand->add_flag("--show-key", t.bShowKey, "Print user keys whole");
  pCommand->footer(s_szFooter);
  pCommand->callback([pOptions] { Decode(*pOptions); });
}

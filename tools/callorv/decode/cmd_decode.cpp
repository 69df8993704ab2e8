// callorv decode: captured packets field by field, and the calls of a capture.
#include <callorv/net/tcp_adaptor.h>

#include <iostream>
#include <memory>

#include "command.h"
#include "common/input.h"
#include "common/json_out.h"
#include "common/options.h"
#include "common/text.h"
#include "decode/byte_source.h"
#include "decode/capture.h"
#include "decode/capture_reader.h"
#include "decode/key_guard.h"
#include "decode/piece.h"
#include "decode/time_line.h"

namespace {

constexpr char s_szFooter[] =
    R"(A capture, pcap or pcapng, becomes a time line: a line for each call, with the time from
request to reply. Any other input is packets one behind the other, or a text of hexadecimal
digits, such as xxd, xxd -p or hexdump -C write; of these all fields are printed. A user key
is masked unless --show-key is given. When something is damaged it is said, and the exit
status is 1.

Examples:
  callorv decode packets/000001-1201-request.packet
  callorv decode --xml packets/000001-1201-reply.packet > replies/1201.xml
  xxd -p capture.bin | callorv decode --json
  callorv decode calls.pcap
  tcpdump -i any -U -w - port 7000 | callorv decode --follow)";

struct T_Options {
  std::string sFile = "-";
  bool bHex = false;
  bool bBinary = false;
  bool bJson = false;
  bool bXml = false;
  bool bShowKey = false;
  bool bDetail = false;
  bool bFollow = false;
  int iPort = 0;
};

std::string ReadBytes(const T_Options& p_tOptions, CByteSource& p_cSource) {
  std::string sInput = p_cSource.TakeAll();
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

// p_cPackets: where they go with --json.
void DecodePackets(const T_Options& p_tOptions, CByteSource& p_cSource, nlohmann::ordered_json& p_cPackets) {
  const std::string sBytes = ReadBytes(p_tOptions, p_cSource);
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
      std::cout << (tPiece.bPacket ? "packet " + std::to_string(iPackets) : "not a packet") << ": bytes " << tPiece.iAt
                << " to " << tPiece.iAt + tPiece.sBytes.size() - 1 << '\n';
      PrintPiece(std::cout, tPiece, p_tOptions.bShowKey);
    }
  }
  std::cout.flush();
  if (iPackets == 0) throw CFailure(sInput + ": no packet in it");
  if (iBroken > 0) {
    throw CFailure(sInput + ": " + std::to_string(iBroken) + " broken among " + Counted(iPackets, "packet"));
  }
}

void DecodeCapture(const T_Options& p_tOptions, CByteSource& p_cSource, nlohmann::ordered_json& p_cObject) {
  T_TimeLineOptions t;
  t.tWish = {p_tOptions.bDetail, p_tOptions.bJson, p_tOptions.bXml, p_tOptions.bShowKey};
  t.iPort = p_tOptions.iPort;
  t.bFollow = p_tOptions.bFollow;
  PrintTimeLine(p_cSource, t, p_cObject);
}

// A capture is told by its first bytes; everything else is packets as they are.
void Decode(const T_Options& p_tOptions, nlohmann::ordered_json& p_cObject) {
  // Those who look for "packets" find them whatever happens.
  if (p_tOptions.bJson && !p_tOptions.bFollow) p_cObject["packets"] = nlohmann::ordered_json::array();
  CByteSource cSource(p_tOptions.sFile);
  if (!p_tOptions.bHex && !p_tOptions.bBinary && CCaptureReader::IsCapture(cSource.Peek(4))) {
    if (p_cObject.is_object()) p_cObject = {{"calls", nlohmann::ordered_json::array()}};
    return DecodeCapture(p_tOptions, cSource, p_cObject);
  }
  const char* szOption = p_tOptions.bFollow ? "--follow" : p_tOptions.bDetail ? "--detail" : "--port";
  if (p_tOptions.bFollow || p_tOptions.bDetail || p_tOptions.iPort != 0) {
    throw CFailure(cSource.Name() + ": no pcap or pcapng capture, as " + szOption + " needs");
  }
  DecodePackets(p_tOptions, cSource, p_cObject["packets"]);
}

void Decode(const T_Options& p_tOptions) {
  if (p_tOptions.bJson && !p_tOptions.bFollow) {
    return PrintObject([&](nlohmann::ordered_json& p_cObject) { Decode(p_tOptions, p_cObject); });
  }
  nlohmann::ordered_json cUnused;
  Decode(p_tOptions, cUnused);
}

}    // namespace

void AddDecode(CLI::App& p_cApp) {
  auto pOptions = std::make_shared<T_Options>();
  T_Options& t = *pOptions;
  CLI::App* pCommand = p_cApp.add_subcommand("decode", "Print captured packets, or the calls of a capture");
  pCommand->add_option("FILE", t.sFile, "Captured bytes; - is standard input")->capture_default_str();
  pCommand->add_option("--port", t.iPort, "Only connections to this port of a server")
      ->type_name("PORT")
      ->check(Between(1, 65535));
  pCommand->add_flag("--detail", t.bDetail, "Print the packets of each call, too");
  CLI::Option* pFollow = pCommand->add_flag("--follow", t.bFollow, "Print each call as soon as it is complete");
  CLI::Option* pHex = pCommand->add_flag("--hex", t.bHex, "The input is hexadecimal digits")->excludes(pFollow);
  pCommand->add_flag("--binary", t.bBinary, "The input is the bytes themselves")->excludes(pHex)->excludes(pFollow);
  CLI::Option* pJson = pCommand->add_flag("--json", t.bJson, "Print JSON");
  pCommand->add_flag("--xml", t.bXml, "Print the bodies alone")->excludes(pJson);
  pCommand->add_flag("--show-key", t.bShowKey, "Print user keys whole");
  pCommand->footer(s_szFooter);
  pCommand->callback([pOptions] { Decode(*pOptions); });
}

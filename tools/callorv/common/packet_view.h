// A packet taken apart: its fields, its body, and everything that is wrong with it.
#ifndef CALLORV_TOOLS_PACKET_VIEW_H
#define CALLORV_TOOLS_PACKET_VIEW_H

#include <callorv/net/tcp_adaptor.h>

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

// What is wrong with a header, in the order of its fields. Stricter than the client: every number must be digits, the
// flag Y or N, the time stamp a time, and the two lengths must agree when the body is not compressed.
std::vector<std::string> CheckHeader(std::string_view p_sHeader);

// Bytes that the packet with this header takes on the wire, trailer included; 0 when the header does not say.
size_t PacketSize(std::string_view p_sHeader);

// Bytes of the body before compression as the header says; 0 when it does not say.
size_t BodySize(std::string_view p_sHeader);

// Reads a whole packet into p_tInfo and returns everything that is wrong with it, its header included.
std::vector<std::string> CheckPacket(std::string_view p_sPacket, CAdaptor::T_PacketInfo& p_tInfo);

// The header's fields, one a line: offset, width, name, value between quotes. The user key is masked unless p_bShowKey.
// p_sTrailer: the checksum that was sent behind the body; "" leaves its line out.
void PrintHeader(std::ostream& p_cOut, std::string_view p_sHeader, std::string_view p_sTrailer, bool p_bShowKey);
// The fields' texts by name, with underscores for blanks.
nlohmann::ordered_json HeaderToJson(std::string_view p_sHeader, bool p_bShowKey);

#endif

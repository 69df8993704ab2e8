// Where the fields of a packet stand.
#ifndef CALLORV_NET_PACKET_FIELDS_H
#define CALLORV_NET_PACKET_FIELDS_H

#include <iterator>

#include "callorv/net/tcp_adaptor.h"

namespace callorv::detail {

inline constexpr CTcpAdaptor::T_Field s_atFields[] = {
    {"begin string", 0, 12},  {"packet length", 12, 10}, {"service", 22, 4},      {"message", 26, 4},
    {"extra", 30, 10},        {"time stamp", 40, 15},    {"user key", 55, 20},    {"aux13", 75, 13},
    {"compressed", 88, 1},    {"body length", 89, 10},   {"aux8", 99, 8},         {"aux21", 107, 21},
};
static_assert(std::size(s_atFields) == CTcpAdaptor::FIELDS);
static_assert(s_atFields[CTcpAdaptor::AUX21].iAt + s_atFields[CTcpAdaptor::AUX21].iWidth == CTcpAdaptor::HEADER_SIZE);

inline constexpr CTcpAdaptor::T_Field s_tCheckSum{"checksum", 0, CTcpAdaptor::TRAILER_SIZE};    // in the trailer

inline constexpr char s_szBegin[] = "QMX-SSP-V1.0";

}    // namespace callorv::detail

#endif

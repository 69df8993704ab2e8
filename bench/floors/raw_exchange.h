// The floor of a call: the same bytes there and back over a connection of their own, and nothing else.
#ifndef BENCH_FLOORS_RAW_EXCHANGE_H
#define BENCH_FLOORS_RAW_EXCHANGE_H

#include <string>
#include <vector>

// Connects to this port of 127.0.0.1, sends p_sRequest, receives exactly p_aReply.size() bytes and closes. Throws
// std::runtime_error.
void ExchangeRaw(int p_iPort, const std::string& p_sRequest, std::vector<char>& p_aReply);

#endif

// The floor of calls in flight: the same bytes there and back over non-blocking sockets and epoll, and nothing else.
#ifndef BENCH_FLOORS_BARE_EPOLL_H
#define BENCH_FLOORS_BARE_EPOLL_H

#include <functional>
#include <string>

// Connects p_iExchanges times to this port of 127.0.0.1, p_iInFlight at once; each sends p_sRequest, which is short,
// receives p_uReply bytes, which p_fnDone gets, and closes. Throws std::runtime_error.
void ExchangeInFlight(int p_iPort, const std::string& p_sRequest, size_t p_uReply, int p_iExchanges, int p_iInFlight,
                      const std::function<void(char*)>& p_fnDone);

#endif

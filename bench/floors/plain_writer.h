// The floor of writing: the same document as most programs would write it, with snprintf and append.
#ifndef BENCH_FLOORS_PLAIN_WRITER_H
#define BENCH_FLOORS_PLAIN_WRITER_H

#include <string>
#include <vector>

#include "payload.h"

// REPLY_MSG with these rows, byte for byte as CMsg::ToXml writes it.
std::string WritePlainly(const std::vector<T_Row>& p_atRow);

#endif

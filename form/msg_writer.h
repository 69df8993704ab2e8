// A message as text, behind what a stream has.
#ifndef CALLORV_FORM_MSG_WRITER_H
#define CALLORV_FORM_MSG_WRITER_H

#include "callorv/msg/msg.h"

namespace callorv::detail {

// As CMsg::ToXml writes a whole message by number. Throws std::bad_alloc.
void AppendXml(const CMsg& p_cMsg, CStream& p_stOut);

}    // namespace callorv::detail

#endif

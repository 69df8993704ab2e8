// The whole C++ interface. C++11 and later.
#ifndef CALLORV_CALLORV_HPP
#define CALLORV_CALLORV_HPP

#include "callorv/base/array.h"
#include "callorv/base/date.h"
#include "callorv/base/exception.h"
#include "callorv/base/hash.h"
#include "callorv/base/ptr_array.h"
#include "callorv/base/str.h"
#include "callorv/base/stream.h"
#include "callorv/callorv.h"
#include "callorv/client/callorv_client.h"
#include "callorv/client/callorv_error.h"
#include "callorv/client/cfg_reader.h"
#include "callorv/client/msg_base.h"
#include "callorv/client/pending_call.h"
#include "callorv/client/typed_msg.h"
#include "callorv/crypt/crypt.h"
#include "callorv/crypt/md5.h"
#include "callorv/dict/dic_reader.h"
#include "callorv/dict/msg_dic.h"
#include "callorv/dict/msg_info.h"
#include "callorv/dict/tag_info.h"
#include "callorv/error/error.h"
#include "callorv/msg/msg.h"
#include "callorv/msg/msg_array.h"
#include "callorv/msg/nullable.h"
#include "callorv/net/adaptor.h"
#include "callorv/net/tcp_adaptor.h"
#include "callorv/version.h"

#endif

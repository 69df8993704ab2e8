// A reply that was read from a file, as far as it can be made without a request.
#ifndef CALLORV_TOOLS_REPLY_H
#define CALLORV_TOOLS_REPLY_H

#include <callorv/msg/msg.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "serve/prepared.h"

// How replies are read.
struct T_ReplyMode {
  bool bAsLibrary = false;      // as the library reads messages; else as ReadMsgFile (msg_file.h) does
  bool bState = false;          // they may have placeholders for the state
  int iCompressOver = 1024;     // bytes of XML; a longer reply is compressed
};

// The values of the state by name, in UTF-8.
using CStateValues = std::map<std::string, std::string>;

// What a call gives for the placeholders.
struct T_CallValues {
  CMsg& cRequest;
  const CStateValues& cState;
};

// The value by that name, "" when there is none.
std::string StateValue(const CStateValues& p_cState, const std::string& p_sName);

// The text, in UTF-8, with the call's values for its placeholders. Throws CFailure.
std::string FillText(const std::string& p_sText, const T_CallValues& p_t, bool p_bState);

// What answers a call. It never changes, so that any thread may use it.
struct T_Reply {
  std::optional<CPrepared> cPrepared;    // none when it depends on the call
  // Fills a message, which has the dictionary, when there is none. Throws CFailure and CException.
  std::function<void(CMsg& p_cReply, const T_CallValues& p_t)> fnFill;
};
using CReplyPtr = std::shared_ptr<const T_Reply>;

// A reply that depends on the call, and one that is the same for every call. Throws CFailure.
CReplyPtr CallReply(std::function<void(CMsg&, const T_CallValues&)> p_fnFill);
CReplyPtr FixedReply(const CMsg& p_cMsg, const T_ReplyMode& p_tMode);

// The reply of a file named p_sName with these bytes. Throws CFailure, the text beginning with p_sName.
CReplyPtr ReplyFromFile(const std::string& p_sName, const std::string& p_sBytes, const T_ReplyMode& p_tMode,
                        CMsgDic& p_cDic);

#endif

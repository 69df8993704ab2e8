// What the parts of callorv dict share: a dictionary of a file, and one message of it.
#ifndef CALLORV_TOOLS_DICT_FILE_H
#define CALLORV_TOOLS_DICT_FILE_H

#include <callorv/dict/msg_dic.h>

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// As the library loads it; "-" is standard input. Throws CFailure.
std::unique_ptr<CMsgDic> LoadInput(const std::string& p_sPath);

// All messages, by number.
std::vector<const CMsgInfo*> Messages(const CMsgDic& p_cDic);

// The number that each name (ISO-8859-1) finds: of several messages with one name the first.
std::map<std::string, int> NumbersByName(const CMsgDic& p_cDic);

// The message of that number or name. Throws CFailure, with the name that was perhaps meant.
const CMsgInfo& NamedMessage(const CMsgDic& p_cDic, const std::string& p_sMessage, const std::string& p_sPath);

// The messages that a message holds, directly or not, in the order in which they are met; without itself and without
// those that the dictionary lacks.
std::vector<const CMsgInfo*> MessagesIn(const CMsgDic& p_cDic, const CMsgInfo& p_cInfo);

// {"number": 4, "name": "QuoteRow", "version": "", "hash": 128, "tags": [{"number": 1, "name": "time", "type": "date",
// "array": false}, ...]}
nlohmann::ordered_json MessageToJson(const CMsgInfo& p_cInfo);

#endif

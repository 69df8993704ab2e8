// Members of a JSON object that is a form: what may stand there, and what it must be.
#ifndef CALLORV_TOOLS_JSON_MEMBERS_H
#define CALLORV_TOOLS_JSON_MEMBERS_H

#include <string>
#include <vector>

#include "common/json_in.h"

// All of these throw CFailure with the place.
// No members but the known ones; a line for each other one.
void CheckMembers(const CJsonIn::CValue& p_cObject, const std::vector<std::string>& p_asKnown);
std::string TextOf(const CJsonIn::CValue& p_cJson);
bool BoolOf(const CJsonIn::CValue& p_cJson);
int IntOf(const CJsonIn::CValue& p_cJson, int p_iMin, int p_iMax);
double DoubleOf(const CJsonIn::CValue& p_cJson, double p_dMin, double p_dMax);
// p_cObject's member, which must be there.
CJsonIn::CValue Needed(const CJsonIn::CValue& p_cObject, const char* p_szName);

#endif

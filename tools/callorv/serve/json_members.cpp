// Members of a JSON object that is a form.
#include "serve/json_members.h"

#include <algorithm>

#include "common/json_number.h"
#include "common/near.h"

namespace {

// "1.5", not "1.500000".
std::string Short(double p_d) {
  std::string s = std::to_string(p_d);
  s.erase(s.find_last_not_of('0') + 1);
  if (s.back() == '.') s.pop_back();
  return s;
}

}    // namespace

void CheckMembers(const CJsonIn::CValue& p_cObject, const std::vector<std::string>& p_asKnown) {
  if (p_cObject.Kind() != JSON_OBJECT) p_cObject.Fail(p_cObject.Words() + " stands where an object belongs");
  std::string sKnown, sWrong;
  for (const std::string& s : p_asKnown) sKnown += (sKnown.empty() ? "" : ", ") + s;
  for (CJsonIn::CValue c = p_cObject.First(); c; c = c.Next()) {
    if (std::find(p_asKnown.begin(), p_asKnown.end(), c.Name()) != p_asKnown.end()) continue;
    const std::string sNear = DidYouMean(c.Name(), p_asKnown);
    try {
      c.Fail("is unknown" + (sNear.empty() ? "; known are " + sKnown : sNear));
    } catch (const CFailure& cError) {
      sWrong += (sWrong.empty() ? "" : "\n") + std::string(cError.what());
    }
  }
  if (!sWrong.empty()) throw CFailure(sWrong);
}

std::string TextOf(const CJsonIn::CValue& p_cJson) {
  if (p_cJson.Kind() != JSON_TEXT) p_cJson.Fail(p_cJson.Words() + " stands where a text belongs");
  return std::string(p_cJson.Text());
}

bool BoolOf(const CJsonIn::CValue& p_cJson) {
  if (p_cJson.Kind() != JSON_BOOL) p_cJson.Fail(p_cJson.Words() + " stands where true or false belongs");
  return p_cJson.Text() == "true";
}

int IntOf(const CJsonIn::CValue& p_cJson, int p_iMin, int p_iMax) {
  int i = 0;
  if (p_cJson.Kind() != JSON_NUMBER || !ToInt(p_cJson.Text(), i) || i < p_iMin || i > p_iMax) {
    p_cJson.Fail(p_cJson.Words() + " stands where an integer from " + std::to_string(p_iMin) + " to " +
                 std::to_string(p_iMax) + " belongs");
  }
  return i;
}

double DoubleOf(const CJsonIn::CValue& p_cJson, double p_dMin, double p_dMax) {
  double d = 0;
  const bool bNumber = p_cJson.Kind() == JSON_NUMBER && ToDouble(p_cJson.Text(), d) != FIT_NOT;
  if (!bNumber || d < p_dMin || d > p_dMax) {
    p_cJson.Fail(p_cJson.Words() + " stands where a number from " + Short(p_dMin) + " to " + Short(p_dMax) +
                 " belongs");
  }
  return d;
}

CJsonIn::CValue Needed(const CJsonIn::CValue& p_cObject, const char* p_szName) {
  const CJsonIn::CValue c = p_cObject.Find(p_szName);
  if (!c) p_cObject.Fail(std::string("'") + p_szName + "' is missing");
  return c;
}

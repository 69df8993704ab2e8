// One value of a message as text.
#include "common/msg_value.h"

#include <charconv>
#include <climits>
#include <cmath>

#include "command.h"
#include "common/text.h"

namespace {

[[noreturn]] void WrongType(const std::string& p_sName, const std::string& p_sValue, const char* p_szType) {
  throw CFailure(p_sName + ": '" + p_sValue + "' is no " + p_szType);
}

int Store(CMsg& p_cMsg, const CTagInfo& p_tTag, const std::string& p_sName, const std::string& p_sValue) {
  switch (p_tTag.m_eType) {
    case TAG_STRING: return p_cMsg.SetValue(p_tTag.m_iTagNum, WireText(p_sValue, p_sName + ": ").c_str());
    case TAG_INTEGER: {
      int i = 0;
      if (!ParseNumber(p_sValue, INT_MIN, INT_MAX, i)) WrongType(p_sName, p_sValue, "integer of 32 bits");
      return p_cMsg.SetValue(p_tTag.m_iTagNum, i);
    }
    case TAG_DOUBLE: {
      double d = 0;    // the shape and the range only: the library's own conversion gives the value
      const char* pEnd = p_sValue.data() + p_sValue.size();
      const auto [pStop, eError] = std::from_chars(p_sValue.data(), pEnd, d);
      if (eError != std::errc() || pStop != pEnd || !std::isfinite(d)) WrongType(p_sName, p_sValue, "number");
      return p_cMsg.SetValue(p_tTag.m_iTagNum, CString(p_sValue.c_str()).ToDbl());
    }
    case TAG_BOOL:
      if (p_sValue != "true" && p_sValue != "false") WrongType(p_sName, p_sValue, "bool (true or false)");
      return p_cMsg.SetValue(p_tTag.m_iTagNum, p_sValue == "true");
    case TAG_DATE:
      if (!IsDate(p_sValue)) WrongType(p_sName, p_sValue, "date (YYYYMMDD)");
      return p_cMsg.SetValue(p_tTag.m_iTagNum, CDate(p_sValue.c_str()));
    default: throw CFailure(p_sName + " is a sub-message");
  }
}

std::string TextOf(const CString& p_s) { return p_s.ToStr(); }
std::string TextOf(int p_i) { return std::to_string(p_i); }
std::string TextOf(double p_d) { return CFormat("%.17g", p_d).ToStr(); }
std::string TextOf(bool p_b) { return p_b ? "true" : "false"; }
std::string TextOf(const CDate& p_c) { return p_c.ToStr(); }

// The text of one value; an index outside the array gives none.
template <class T>
std::string ValueAt(CMsg& p_cMsg, int p_iTag, int p_iIndex) {
  T Value{};
  return p_cMsg.GetValueAt(p_iTag, p_iIndex, &Value) < 0 ? std::string() : TextOf(Value);
}

}    // namespace

// What XML cannot carry would make a message that nobody can read, or reads as another one.
std::string WireText(const std::string& p_sText, const std::string& p_sBefore) {
  std::string sText = ToLatin1(p_sText);
  if (sText.find("]]>") != std::string::npos) throw CFailure(p_sBefore + "a text cannot hold ]]>");
  if (sText.find('\r') != std::string::npos) {
    throw CFailure(p_sBefore + "a text cannot hold a carriage return, which arrives as a line feed");
  }
  for (const char c : sText) {
    if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n') {
      throw CFailure(p_sBefore + "a text cannot hold control characters");
    }
  }
  return sText;
}

// One that survives being written: the library cuts it, and writes it as it is.
std::string WireVersion(const std::string& p_sText, const std::string& p_sBefore) {
  std::string sVer = ToLatin1(p_sText);
  const std::string sWhich = p_sBefore + '\'' + p_sText;
  if (sVer.size() >= CMsg::VER_SIZE) throw CFailure(sWhich + "' has more than 16 characters");
  for (const char c : sVer) {
    if (static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\'' || c == '<' || c == '&') {
      throw CFailure(sWhich + "' has a character that a version cannot have");
    }
  }
  return sVer;
}

bool IsDate(std::string_view p_sText) {
  return p_sText.size() <= 8 && p_sText.find_first_not_of("0123456789-/.: ") == std::string_view::npos;
}

void SetValue(CMsg& p_cMsg, const CTagInfo& p_tTag, const std::string& p_sName, const std::string& p_sValue) {
  if (Store(p_cMsg, p_tTag, p_sName, p_sValue) < 0) throw CFailure(p_sName + ": " + p_cMsg.GetLastError());
}

std::string GetValue(CMsg& p_cMsg, const CTagInfo& p_tTag, int p_iIndex, const std::string& p_sName) {
  const int iTag = p_tTag.m_iTagNum;
  switch (p_tTag.m_eType) {
    case TAG_STRING: return ValueAt<CString>(p_cMsg, iTag, p_iIndex);
    case TAG_INTEGER: return ValueAt<int>(p_cMsg, iTag, p_iIndex);
    case TAG_DOUBLE: return ValueAt<double>(p_cMsg, iTag, p_iIndex);
    case TAG_BOOL: return ValueAt<bool>(p_cMsg, iTag, p_iIndex);
    case TAG_DATE: return ValueAt<CDate>(p_cMsg, iTag, p_iIndex);
    default: throw CFailure("tag '" + p_sName + "' is a sub-message");
  }
}

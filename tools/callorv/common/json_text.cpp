// JSON on one line, written piece by piece.
#include "common/json_text.h"

void AppendText(std::string& p_sOut, std::string_view p_sText) {
  static constexpr char s_szHex[] = "0123456789abcdef";
  p_sOut += '"';
  for (const char c : p_sText) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      p_sOut += '\\';
      p_sOut += c;
    } else if (c == '\n') {
      p_sOut += "\\n";
    } else if (u < 0x20 || u == 0x7F) {
      p_sOut += "\\u00";
      p_sOut += s_szHex[u >> 4];
      p_sOut += s_szHex[u & 15];
    } else {
      p_sOut += c;
    }
  }
  p_sOut += '"';
}

void AppendValue(std::string& p_sOut, const CJsonIn::CValue& p_cValue) {
  const E_JsonKind eKind = p_cValue.Kind();
  if (eKind == JSON_TEXT) return AppendText(p_sOut, p_cValue.Text());
  if (eKind != JSON_ARRAY && eKind != JSON_OBJECT) {
    p_sOut += p_cValue.Text();
    return;
  }
  p_sOut += eKind == JSON_ARRAY ? '[' : '{';
  bool bFirst = true;
  for (CJsonIn::CValue c = p_cValue.First(); c; c = c.Next()) {
    if (!bFirst) p_sOut += ',';
    bFirst = false;
    if (eKind == JSON_OBJECT) {
      AppendText(p_sOut, c.Name());
      p_sOut += ':';
    }
    AppendValue(p_sOut, c);
  }
  p_sOut += eKind == JSON_ARRAY ? ']' : '}';
}

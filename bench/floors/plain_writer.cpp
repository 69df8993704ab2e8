// The floor of writing: the same document as most programs would write it, with snprintf and append.
#include "floors/plain_writer.h"

#include <cstdio>

std::string WritePlainly(const std::vector<T_Row>& p_atRow) {
  char szText[128];
  std::string sOut;
  snprintf(szText, sizeof(szText), "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"%d\" ver=\"%s\">",
           REPLY_MSG, "");
  sOut.append(szText);
  for (const T_Row& tRow : p_atRow) {
    snprintf(szText, sizeof(szText), "<t%d>", ROWS_TAG);
    sOut.append(szText);
    snprintf(szText, sizeof(szText), "<t%d><![CDATA[%s]]></t%d>", 1, tRow.sText.c_str(), 1);
    sOut.append(szText);
    snprintf(szText, sizeof(szText), "<t%d>%d</t%d>", 2, tRow.iNumber, 2);
    sOut.append(szText);
    snprintf(szText, sizeof(szText), "<t%d>%.15e</t%d>", 3, tRow.dPrice, 3);
    sOut.append(szText);
    snprintf(szText, sizeof(szText), "<t%d>%s</t%d>", 4, tRow.bFlag ? "true" : "false", 4);
    sOut.append(szText);
    snprintf(szText, sizeof(szText), "</t%d>", ROWS_TAG);
    sOut.append(szText);
  }
  return sOut.append("</msg>");
}

// The simulator's answers: a folder of reply files.
#include "reply_store.h"

#include <callorv/base/exception.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "command.h"
#include "input.h"
#include "msg_path.h"
#include "text.h"

namespace {

constexpr char s_szOpen[] = "{{tag:";
constexpr char s_szClose[] = "}}";

// Whether an XML document is written in ISO-8859-1; otherwise it counts as UTF-8, as XML itself has it.
bool IsLatin1(const std::string& p_sXml) {
  std::string sHead = p_sXml.substr(0, p_sXml.find("?>"));
  std::transform(sHead.begin(), sHead.end(), sHead.begin(), [](unsigned char c) { return std::toupper(c); });
  return sHead.rfind("<?XML", 0) == 0 && sHead.find("ISO-8859-1") != std::string::npos;
}

// Whether the end of p_sXml is inside a CDATA section.
bool EndsInCData(const std::string& p_sXml) {
  const size_t iOpen = p_sXml.rfind("<![CDATA[");
  const size_t iClose = p_sXml.rfind("]]>");
  return iOpen != std::string::npos && (iClose == std::string::npos || iClose < iOpen);
}

}    // namespace

std::string FillTemplate(const std::string& p_sXml, CMsg& p_cRequest) {
  const bool bLatin1 = IsLatin1(p_sXml);
  std::string sOut;
  size_t iDone = 0;
  for (size_t iOpen; (iOpen = p_sXml.find(s_szOpen, iDone)) != std::string::npos;) {
    const size_t iPath = iOpen + sizeof s_szOpen - 1;
    const size_t iEnd = p_sXml.find(s_szClose, iPath);
    if (iEnd == std::string::npos) throw CFailure("{{tag: without }}");
    sOut.append(p_sXml, iDone, iOpen - iDone);
    std::string sValue = GetByPath(p_cRequest, p_sXml.substr(iPath, iEnd - iPath));
    if (!bLatin1) sValue = ToUtf8(sValue);
    const bool bWrap = sValue.find_first_of("<&") != std::string::npos && !EndsInCData(sOut);
    sOut += bWrap ? "<![CDATA[" + sValue + "]]>" : sValue;
    iDone = iEnd + sizeof s_szClose - 1;
  }
  return sOut.append(p_sXml, iDone);
}

CReplyStore::CReplyStore(const std::string& p_sFolder) : m_sFolder(p_sFolder) {
  std::error_code cError;
  if (!std::filesystem::is_directory(p_sFolder, cError)) {
    throw CFailure(p_sFolder + ": " + (cError ? cError.message() : "not a folder"));
  }
}

void CReplyStore::Load(int p_iSvcNum, CMsg& p_cRequest, CMsg& p_cReply) const {
  const std::string sName = std::to_string(p_iSvcNum) + ".xml";
  const std::string sPath = m_sFolder + "/" + sName;
  if (!std::filesystem::exists(sPath)) throw CNoReply("no reply file " + sName);
  try {
    p_cReply.LoadXml(FillTemplate(ReadWholeFile(sPath), p_cRequest).data());
  } catch (const CException& cError) {
    throw CFailure(sName + ": " + cError.GetText());
  } catch (const CFailure& cError) {
    throw CFailure(sName + ": " + cError.what());
  }
}

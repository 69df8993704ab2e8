// The simulator's answers: a folder of reply files.
#include "serve/reply_store.h"

#include <callorv/base/exception.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <filesystem>
#include <map>

#include "command.h"
#include "common/input.h"
#include "common/msg_file.h"
#include "common/msg_path.h"
#include "common/text.h"
#include "serve/placeholder.h"

namespace fs = std::filesystem;

namespace {

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

// The document filled in, for the library. A value that markup would break stands in a CDATA section of its own.
std::string FillXml(const std::string& p_sXml, CMsg& p_cRequest) {
  const bool bLatin1 = IsLatin1(p_sXml);
  return ReplacePlaceholders(p_sXml, [&](const std::string& p_sPath, const std::string& p_sBefore) {
    std::string sValue = GetByPath(p_cRequest, p_sPath);
    if (!bLatin1) sValue = ToUtf8(sValue);
    const bool bWrap = sValue.find_first_of("<&") != std::string::npos && !EndsInCData(p_sBefore);
    return bWrap ? "<![CDATA[" + sValue + "]]>" : sValue;
  });
}

// Stores no text that has a placeholder.
bool NeedsNoRequest(std::string& p_sText) {
  bool bNeeds = false;
  ReplacePlaceholders(p_sText, [&](const std::string&, const std::string&) {
    bNeeds = true;
    return "";
  });
  return !bNeeds;
}

// The reply files of a folder by their services.
std::map<int, fs::path> FilesIn(const std::string& p_sFolder) {
  std::map<int, fs::path> cFiles;
  std::error_code cError;
  fs::directory_iterator cEntry(p_sFolder, cError);
  for (; !cError && cEntry != fs::directory_iterator(); cEntry.increment(cError)) {
    const fs::path& cPath = cEntry->path();
    int iService = 0;
    if (cPath.extension() == ".xml" && ParseNumber(cPath.stem().string(), INT_MIN, INT_MAX, iService) &&
        cPath.stem() == std::to_string(iService)) {
      cFiles[iService] = cPath;
    }
  }
  if (cError) throw CFailure(p_sFolder + ": " + cError.message());
  return cFiles;
}

}    // namespace

CReplyStore::CReplyStore(const std::string& p_sFolder, bool p_bAsLibrary)
    : m_sFolder(p_sFolder), m_bAsLibrary(p_bAsLibrary) {
  std::error_code cError;
  if (!fs::is_directory(p_sFolder, cError)) {
    throw CFailure(p_sFolder + ": " + (cError ? cError.message() : "not a folder"));
  }
  if (!p_bAsLibrary) CheckAll();
}

void CReplyStore::CheckAll() const {
  std::string sWrong;
  for (const auto& [iService, cPath] : FilesIn(m_sFolder)) {
    try {
      CMsg cReply(0, 0, 0, MA_GetMsgDic());
      ReadMsgFile(cReply, cPath.string(), ReadWholeFile(cPath.string()), NeedsNoRequest);
    } catch (const CFailure& cError) {
      sWrong += (sWrong.empty() ? "" : "\n") + std::string(cError.what());
    }
  }
  if (!sWrong.empty()) throw CFailure(sWrong);
}

void CReplyStore::Load(int p_iSvcNum, CMsg& p_cRequest, CMsg& p_cReply) const {
  const std::string sName = std::to_string(p_iSvcNum) + ".xml";
  const std::string sPath = m_sFolder + "/" + sName;
  if (!fs::exists(sPath)) throw CNoReply("no reply file " + sName);
  const std::string sData = ReadWholeFile(sPath);
  if (!m_bAsLibrary) {
    const auto fnValue = [&](const std::string& p_sPath, const std::string&) {
      return ToUtf8(GetByPath(p_cRequest, p_sPath));
    };
    return ReadMsgFile(p_cReply, sName, sData, [&](std::string& p_sText) {
      p_sText = ReplacePlaceholders(p_sText, fnValue);
      return true;
    });
  }
  try {
    p_cReply.LoadXml(FillXml(sData, p_cRequest).data());
  } catch (const CException& cError) {
    throw CFailure(sName + ": " + cError.GetText());
  } catch (const CFailure& cError) {
    throw CFailure(sName + ": " + cError.what());
  }
}

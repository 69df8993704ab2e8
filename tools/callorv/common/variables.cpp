// Requests that vary from call to call.
#include "common/variables.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <string_view>
#include <system_error>

#include "command.h"

namespace {

constexpr std::string_view s_sOpen = "{{", s_sClose = "}}", s_sLiteral = "{{{{";
constexpr char s_szUnknown[] = "no placeholder; there are {{n}}, {{uuid}}, {{rand:MIN:MAX}} and {{csv:FILE:COLUMN}}";
constexpr char s_szLiteral[] = "; {{ itself is written {{{{";

// The system's random numbers, fetched many at a time. As std::uniform_int_distribution wants them.
class CRandom {
 public:
  using result_type = uint64_t;
  static constexpr uint64_t min() { return 0; }
  static constexpr uint64_t max() { return std::numeric_limits<uint64_t>::max(); }

  uint64_t operator()() {
    if (m_iNext == COUNT) {
      ssize_t iGot = 0;
      do iGot = getrandom(m_auNumbers, sizeof m_auNumbers, 0);    // up to 256 bytes come whole
      while (iGot < 0 && errno == EINTR);
      if (iGot != sizeof m_auNumbers) throw std::system_error(errno, std::generic_category(), "getrandom");
      m_iNext = 0;
    }
    return m_auNumbers[m_iNext++];
  }

 private:
  enum : size_t { COUNT = 32 };
  static_assert(COUNT * sizeof(uint64_t) <= 256, "what getrandom() promises to give at once");
  uint64_t m_auNumbers[COUNT] = {};
  size_t m_iNext = COUNT;
};

CRandom& Random() {
  static thread_local CRandom s_cRandom;
  return s_cRandom;
}

// RFC 9562, version 4: 122 random bits between the version and the variant.
void AppendUuid(std::string& p_sOut) {
  const uint64_t auBits[] = {(Random()() & ~uint64_t{0xF000}) | 0x4000,
                             (Random()() & ~(uint64_t{3} << 62)) | uint64_t{2} << 62};
  for (int i = 0; i < 32; ++i) {
    if (i == 8 || i == 12 || i == 16 || i == 20) p_sOut += '-';
    p_sOut += "0123456789abcdef"[auBits[i / 16] >> (60 - i % 16 * 4) & 15];
  }
}

void AppendField(std::string& p_sOut, const std::string& p_sField, E_Quoting p_eQuoting) {
  if (p_eQuoting == QUOTE_NONE) {
    p_sOut += p_sField;
    return;
  }
  using Json = nlohmann::json;
  const std::string sQuoted = Json(p_sField).dump(-1, ' ', false, Json::error_handler_t::replace);
  p_sOut.append(sQuoted, 1, sQuoted.size() - 2);
}

bool ReadNumber(std::string_view p_sText, int64_t& p_iOut) {
  const char* pEnd = p_sText.data() + p_sText.size();
  const auto [pStop, eError] = std::from_chars(p_sText.data(), pEnd, p_iOut);
  return eError == std::errc() && pStop == pEnd;
}

}    // namespace

bool CVaryingText::Varies() const {
  return std::any_of(m_atPieces.begin(), m_atPieces.end(), [](const T_Piece& t) { return t.eKind != LITERAL; });
}

std::string CVaryingText::ForCall(uint64_t p_uCall) const {
  std::string sOut;
  for (const T_Piece& t : m_atPieces) {
    switch (t.eKind) {
      case LITERAL: sOut += t.sText; break;
      case NUMBER: sOut += std::to_string(p_uCall); break;
      case UUID: AppendUuid(sOut); break;
      case RANDOM: sOut += std::to_string(std::uniform_int_distribution<int64_t>(t.iMin, t.iMax)(Random())); break;
      case FIELD:
        AppendField(sOut, t.pTable->At(static_cast<size_t>((p_uCall - 1) % t.pTable->Rows()), t.iColumn), m_eQuoting);
        break;
    }
  }
  return sOut;
}

std::string FindPlaceholder(const std::string& p_sText) {
  for (size_t iOpen = 0; (iOpen = p_sText.find(s_sOpen, iOpen)) != std::string::npos; ++iOpen) {
    const size_t iClose = p_sText.find(s_sClose, iOpen);
    if (iClose == std::string::npos) break;
    std::string sAll = p_sText.substr(iOpen, iClose + s_sClose.size() - iOpen);
    const bool bLong = sAll.rfind("{{rand:", 0) == 0 || sAll.rfind("{{csv:", 0) == 0;
    if (bLong || sAll == "{{n}}" || sAll == "{{uuid}}") return sAll;
  }
  return "";
}

CVaryingText CVariables::Compile(const std::string& p_sText, E_Quoting p_eQuoting) {
  CVaryingText cText;
  cText.m_eQuoting = p_eQuoting;
  std::string sLiteral;
  const auto fnAdd = [&](CVaryingText::T_Piece p_tPiece) { cText.m_atPieces.push_back(std::move(p_tPiece)); };
  const auto fnAddLiteral = [&] {
    if (!sLiteral.empty()) fnAdd({CVaryingText::LITERAL, std::move(sLiteral), 0, 0, nullptr, 0});
    sLiteral.clear();
  };
  size_t iDone = 0;
  for (size_t iOpen; (iOpen = p_sText.find(s_sOpen, iDone)) != std::string::npos;) {
    sLiteral.append(p_sText, iDone, iOpen - iDone);
    if (p_sText.compare(iOpen, s_sLiteral.size(), s_sLiteral) == 0) {
      sLiteral += s_sOpen;
      iDone = iOpen + s_sLiteral.size();
      continue;
    }
    const size_t iWords = iOpen + s_sOpen.size();
    const size_t iClose = p_sText.find(s_sClose, iWords);
    if (iClose == std::string::npos) throw CFailure("'" + p_sText.substr(iOpen, 40) + "': {{ without }}" + s_szLiteral);
    fnAddLiteral();
    fnAdd(CompileOne(p_sText.substr(iWords, iClose - iWords)));
    iDone = iClose + s_sClose.size();
  }
  sLiteral.append(p_sText, iDone);
  fnAddLiteral();
  return cText;
}

size_t CVariables::Rows() const {
  size_t iRows = 1;
  for (const auto& [sPath, pTable] : m_cTables) iRows = std::max(iRows, pTable->Rows());
  return iRows;
}

CVaryingText::T_Piece CVariables::CompileOne(const std::string& p_sWords) {
  const auto fnFail = [&](const std::string& p_sWhy) { throw CFailure("{{" + p_sWords + "}}: " + p_sWhy); };
  CVaryingText::T_Piece t;
  const size_t iFirst = p_sWords.find(':'), iLast = p_sWords.rfind(':');
  const std::string sName = p_sWords.substr(0, iFirst);
  const bool bAlone = iFirst == std::string::npos;
  if (sName == "n" && bAlone) {
    t.eKind = CVaryingText::NUMBER;
  } else if (sName == "uuid" && bAlone) {
    t.eKind = CVaryingText::UUID;
  } else if (sName == "rand") {
    t.eKind = CVaryingText::RANDOM;
    if (iFirst == iLast || !ReadNumber(std::string_view(p_sWords).substr(iFirst + 1, iLast - iFirst - 1), t.iMin) ||
        !ReadNumber(std::string_view(p_sWords).substr(iLast + 1), t.iMax)) {
      fnFail("two whole numbers are needed, as in {{rand:1:100}}");
    }
    if (t.iMin > t.iMax) fnFail(std::to_string(t.iMin) + " is more than " + std::to_string(t.iMax));
  } else if (sName == "csv") {
    t.eKind = CVaryingText::FIELD;
    if (iFirst == iLast || iLast == iFirst + 1 || iLast + 1 == p_sWords.size()) {
      fnFail("a file and a column are needed, as in {{csv:shares.csv:code}}");
    }
    const std::string sPath = p_sWords.substr(iFirst + 1, iLast - iFirst - 1);
    if (sPath == "-") fnFail("a table comes from a file, not from standard input");
    std::shared_ptr<const CCsvFile>& pTable = m_cTables[sPath];
    if (pTable == nullptr) pTable = std::make_shared<const CCsvFile>(sPath);
    t.pTable = pTable;
    t.iColumn = pTable->ColumnOf(p_sWords.substr(iLast + 1));
  } else {
    fnFail(s_szUnknown + std::string(s_szLiteral));
  }
  return t;
}

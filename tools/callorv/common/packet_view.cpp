// A packet taken apart: its fields, its body, and everything that is wrong with it.
#include "common/packet_view.h"

#include <algorithm>
#include <climits>
#include <iomanip>
#include <optional>

#include "common/text.h"

namespace {

constexpr int HEADER_SIZE = CTcpAdaptor::HEADER_SIZE;
constexpr int TRAILER_SIZE = CTcpAdaptor::TRAILER_SIZE;
constexpr const char* DIGITS = "0123456789";

std::string_view FieldText(std::string_view p_sHeader, int p_iField) {
  const CTcpAdaptor::T_Field* pField = CTcpAdaptor::GetField(p_iField);
  return p_sHeader.substr(pField->iAt, pField->iWidth);
}

std::string Quoted(std::string_view p_sText) { return "'" + Printable(p_sText, false) + "'"; }

// The number in a field: digits, after a sign where the number may be negative. None when it is no 32-bit number.
std::optional<int> FieldNumber(std::string_view p_sHeader, int p_iField) {
  const bool bLength = p_iField == CTcpAdaptor::PACKET_LENGTH || p_iField == CTcpAdaptor::BODY_LENGTH;
  const std::string_view sText = FieldText(p_sHeader, p_iField);
  int i = 0;
  return ParseNumber(sText, bLength ? 0 : INT_MIN, INT_MAX, i) ? std::optional<int>(i) : std::nullopt;
}

bool IsTimeStamp(std::string_view p_sText) {
  for (size_t i = 0; i < p_sText.size(); ++i) {
    if (i == 8 ? p_sText[i] != '-' : p_sText[i] < '0' || p_sText[i] > '9') return false;
  }
  return true;
}

// The value as it is shown: with its padding, the user key perhaps masked.
std::string ShownText(std::string_view p_sHeader, int p_iField, bool p_bShowKey) {
  std::string_view sText = FieldText(p_sHeader, p_iField);
  if (p_iField != CTcpAdaptor::USER_KEY || p_bShowKey) return Printable(sText, false);
  const size_t iWidth = sText.size();
  sText = sText.substr(0, sText.find_last_not_of(' ') + 1);
  return MaskKey(sText) + std::string(iWidth - sText.size(), ' ');
}

void PrintField(std::ostream& p_cOut, size_t p_iOffset, size_t p_iWidth, const char* p_szName,
                const std::string& p_sText) {
  p_cOut << std::setw(8) << p_iOffset << std::setw(6) << p_iWidth << "  " << std::left << std::setw(18) << p_szName
         << std::right << '\'' << p_sText << "'\n";
}

}    // namespace

std::vector<std::string> CheckHeader(std::string_view p_sHeader) {
  std::vector<std::string> asWrong;
  const auto fnNumber = [&](int p_iField) {
    const std::optional<int> i = FieldNumber(p_sHeader, p_iField);
    if (!i) {
      asWrong.push_back(CTcpAdaptor::GetField(p_iField)->szName + (" " + Quoted(FieldText(p_sHeader, p_iField))) +
                        " is no number of 32 bits in digits");
    }
    return i;
  };
  const std::string_view sBegin = FieldText(p_sHeader, CTcpAdaptor::BEGIN_STRING);
  if (sBegin != CTcpAdaptor::GetBeginString()) {
    asWrong.push_back("begin string " + Quoted(sBegin) + " is not " + CTcpAdaptor::GetBeginString());
  }
  const std::optional<int> iPacket = fnNumber(CTcpAdaptor::PACKET_LENGTH);
  const bool bRoom = iPacket && *iPacket >= HEADER_SIZE;
  if (iPacket && !bRoom) {
    asWrong.push_back("packet length " + std::to_string(*iPacket) + " is less than the header's 128 bytes");
  }
  for (const int iField : {CTcpAdaptor::SERVICE, CTcpAdaptor::MESSAGE, CTcpAdaptor::EXTRA}) fnNumber(iField);
  const std::string_view sTime = FieldText(p_sHeader, CTcpAdaptor::TIME_STAMP);
  if (!IsTimeStamp(sTime)) asWrong.push_back("time stamp " + Quoted(sTime) + " is not YYYYMMDD-HHMMSS");
  const std::string_view sFlag = FieldText(p_sHeader, CTcpAdaptor::COMPRESSED);
  if (sFlag != "Y" && sFlag != "N") asWrong.push_back("compressed " + Quoted(sFlag) + " is neither Y nor N");
  const std::optional<int> iBody = fnNumber(CTcpAdaptor::BODY_LENGTH);
  if (sFlag == "N" && iBody && bRoom && *iBody != *iPacket - HEADER_SIZE) {
    asWrong.push_back("body length " + std::to_string(*iBody) + " is not the packet's " +
                      Counted(static_cast<size_t>(*iPacket - HEADER_SIZE), "byte"));
  }
  return asWrong;
}

size_t PacketSize(std::string_view p_sHeader) {
  const int iPacket = FieldNumber(p_sHeader, CTcpAdaptor::PACKET_LENGTH).value_or(0);
  return iPacket < HEADER_SIZE ? 0 : static_cast<size_t>(iPacket) + TRAILER_SIZE;
}

size_t BodySize(std::string_view p_sHeader) {
  return static_cast<size_t>(FieldNumber(p_sHeader, CTcpAdaptor::BODY_LENGTH).value_or(0));
}

std::vector<std::string> CheckPacket(std::string_view p_sPacket, CAdaptor::T_PacketInfo& p_tInfo) {
  const std::string_view sHeader = p_sPacket.substr(0, HEADER_SIZE);
  std::vector<std::string> asWrong = CheckHeader(sHeader);
  const std::string_view sTrailer = p_sPacket.substr(p_sPacket.size() - TRAILER_SIZE);
  if (sTrailer.find_first_not_of(DIGITS) != std::string_view::npos) {
    asWrong.push_back("checksum " + Quoted(sTrailer) + " is not 3 digits");
  }
  CTcpAdaptor cParser;
  const int iRet = cParser.ParsePacket(p_sPacket.data(), static_cast<int>(p_sPacket.size()), &p_tInfo);
  const std::optional<int> iBody = FieldNumber(sHeader, CTcpAdaptor::BODY_LENGTH);
  if (iRet < 0) {
    // Other failures follow from what is wrong with the header.
    const bool bNews = iRet == ADAPT_CHECKSUM || iRet == ADAPT_COMPRESSION || asWrong.empty();
    if (bNews) asWrong.push_back(cParser.GetLastError());
  } else if (p_tInfo.bCompressed && iBody && *iBody != p_tInfo.stBody.GetSize()) {
    asWrong.push_back("body length " + std::to_string(*iBody) + " is not the " +
                      Counted(static_cast<size_t>(p_tInfo.stBody.GetSize()), "byte") +
                      " that the body decompresses to");
  }
  return asWrong;
}

void PrintHeader(std::ostream& p_cOut, std::string_view p_sHeader, std::string_view p_sTrailer, bool p_bShowKey) {
  for (int i = 0; i < CTcpAdaptor::FIELDS; ++i) {
    const CTcpAdaptor::T_Field* pField = CTcpAdaptor::GetField(i);
    PrintField(p_cOut, pField->iAt, pField->iWidth, pField->szName, ShownText(p_sHeader, i, p_bShowKey));
  }
  const size_t iSize = PacketSize(p_sHeader);
  if (!p_sTrailer.empty() && iSize > 0) {
    PrintField(p_cOut, iSize - TRAILER_SIZE, TRAILER_SIZE, "checksum", Printable(p_sTrailer, false));
  }
}

nlohmann::ordered_json HeaderToJson(std::string_view p_sHeader, bool p_bShowKey) {
  nlohmann::ordered_json cFields;
  for (int i = 0; i < CTcpAdaptor::FIELDS; ++i) {
    std::string sName = CTcpAdaptor::GetField(i)->szName;
    std::replace(sName.begin(), sName.end(), ' ', '_');
    cFields[sName] = ShownText(p_sHeader, i, p_bShowKey);
  }
  return cFields;
}

// Packets out of one direction of a connection.
#include "decode/framer.h"

#include <algorithm>
#include <climits>
#include <exception>
#include <sstream>

#include "common/packet_view.h"
#include "common/text.h"
#include "common/xml_file.h"

namespace {

constexpr size_t HEADER_SIZE = T_Piece::HEADER_SIZE;
constexpr size_t JUNK = 256;       // bytes that are kept to be shown
constexpr size_t PART = 16384;     // what is taken at once: each packet that is taken out moves what is behind it
constexpr size_t SMALL = 65536;    // a longer buffer is given back when it is empty

int FieldNumber(std::string_view p_sHeader, CTcpAdaptor::E_Field p_eField) {
  const CTcpAdaptor::T_Field& t = *CTcpAdaptor::GetField(p_eField);
  const std::string_view sText = p_sHeader.substr(static_cast<size_t>(t.iAt), static_cast<size_t>(t.iWidth));
  int i = 0;
  ParseNumber(sText, INT_MIN, INT_MAX, i);
  return i;
}

bool HasKey(std::string_view p_sHeader) {
  const CTcpAdaptor::T_Field& t = *CTcpAdaptor::GetField(CTcpAdaptor::USER_KEY);
  const std::string_view sKey = p_sHeader.substr(static_cast<size_t>(t.iAt), static_cast<size_t>(t.iWidth));
  return sKey.find_first_not_of(' ') != std::string_view::npos;
}

std::string MissingText(uint64_t p_iBytes) {
  const char* szAre = p_iBytes == 1 ? " is" : " are";
  return Counted(static_cast<size_t>(p_iBytes), "byte") + szAre + " missing in the capture";
}

// The rejection's code and reason, by the numbers of their tags or by their names.
void ReadRejection(const std::string& p_sBody, T_Packet& p_tPacket) {
  constexpr int CODE_TAG = 6, REASON_TAG = 7;
  try {
    const CXmlFile cFile("body", p_sBody);
    for (const pugi::xml_node& cTag : cFile.Root().children()) {
      const std::string sName = cTag.name();
      const bool bCode = sName == "t" + std::to_string(CODE_TAG) || sName == "SysCode";
      const bool bReason = sName == "t" + std::to_string(REASON_TAG) || sName == "SysReasonText";
      if (bCode) p_tPacket.sCode = cFile.TextOf(cTag);
      if (bReason) p_tPacket.sReason = cFile.TextOf(cTag);
    }
    p_tPacket.bRejection = true;
  } catch (const std::exception&) {
    p_tPacket.asWrong.push_back("the body is no rejection");
  }
}

}    // namespace

size_t CFramer::Held() const {
  size_t iHeld = m_sBuffer.capacity() + m_sJunk.capacity();
  for (const T_Packet& t : atPacket) iHeld += t.Held();
  return iHeld;
}

void CFramer::StartsHere() {
  if (!m_bTouched) m_bAligned = true;
}

// What came out of order was complete with the latest of its segments.
void CFramer::SetLast(const T_Moment& p_tMoment) {
  if (!m_tLast.bKnown || m_tLast.iNano < p_tMoment.iNano) m_tLast = p_tMoment;
}

void CFramer::Feed(std::string_view p_sBytes, const T_Moment& p_tMoment) {
  m_bTouched = true;
  while (!p_sBytes.empty()) {
    size_t iNow = std::min(PART, p_sBytes.size());
    if (m_iSkip > 0) iNow = static_cast<size_t>(std::min<uint64_t>(m_iSkip, p_sBytes.size()));
    if (m_iSkip == 0 && m_sBuffer.empty()) m_tFirst = p_tMoment;
    SetLast(p_tMoment);
    if (m_iSkip > 0) {
      m_iSkip -= iNow;
      m_iCame += iNow;
      if (m_iSkip == 0) EmitSkipped();
    } else {
      m_sBuffer.append(p_sBytes.substr(0, iNow));
      Parse();
    }
    p_sBytes.remove_prefix(iNow);
  }
}

void CFramer::Parse() {
  while (!m_sBuffer.empty() && (m_bPacket || Search()) && Complete()) m_tFirst = m_tLast;
}

// Whether the buffer begins a packet after everything before it was dropped.
bool CFramer::Search() {
  const std::string_view sBegin = CTcpAdaptor::GetBeginString();
  size_t iAt = m_sBuffer.find(sBegin);
  m_bPacket = iAt != std::string::npos;
  if (!m_bPacket) {    // its first characters may be the last that have come
    iAt = m_sBuffer.size() - std::min(m_sBuffer.size(), sBegin.size() - 1);
    while (sBegin.substr(0, m_sBuffer.size() - iAt) != std::string_view(m_sBuffer).substr(iAt)) ++iAt;
  }
  AddJunk(std::string_view(m_sBuffer).substr(0, iAt));
  Drop(iAt);
  if (!m_bPacket) return false;
  EmitJunk();
  m_iSize = 0;
  return true;
}

// Takes the packet out of the buffer when it is whole; false when more has to come.
bool CFramer::Complete() {
  if (m_sBuffer.size() < HEADER_SIZE) return false;
  const std::string_view sHeader = std::string_view(m_sBuffer).substr(0, HEADER_SIZE);
  if (m_iSize == 0) m_iSize = PacketSize(sHeader);
  T_Piece tPiece;
  tPiece.bPacket = true;
  tPiece.iSize = m_iSize;
  if (m_iSize == 0) {    // nobody knows where the next begins
    tPiece.sBytes = sHeader;
    Check(tPiece);
  } else if (m_iSize > MOST || BodySize(sHeader) > MOST) {
    const std::string sRest = m_sBuffer.substr(std::min(m_iSize, m_sBuffer.size()));
    const T_Moment tLast = m_tLast;
    m_sBuffer.resize(m_sBuffer.size() - sRest.size());
    StartSkipping(m_iSize - m_sBuffer.size(), "longer than 64 MB, and not read");
    if (m_iSkip > 0) return false;
    EmitSkipped();
    m_sBuffer = sRest;
    m_tLast = tLast;
    return true;
  } else if (m_sBuffer.size() < m_iSize) {
    return false;
  } else {
    tPiece.sBytes = std::string_view(m_sBuffer).substr(0, m_iSize);
    Check(tPiece);
  }
  m_bPacket = false;
  m_bAligned = m_iSize > 0;
  const size_t iTaken = tPiece.sBytes.size();
  Emit(tPiece, iTaken);
  Drop(iTaken);
  return true;
}

void CFramer::Drop(size_t p_iBytes) {
  m_sBuffer.erase(0, p_iBytes);
  if (m_sBuffer.empty() && m_sBuffer.capacity() > SMALL) m_sBuffer = std::string();
}

// From the packet in the buffer only its header stays.
void CFramer::StartSkipping(uint64_t p_iSkip, const std::string& p_sWhy) {
  m_iCame = m_sBuffer.size();
  m_iSkip = p_iSkip;
  m_sWhySkipped = p_sWhy;
  m_sBuffer.resize(HEADER_SIZE);
  m_sBuffer.shrink_to_fit();
}

void CFramer::EmitSkipped() {
  T_Piece tPiece;
  tPiece.bPacket = true;
  tPiece.iSize = m_iSize;
  const std::string sHeader = m_sBuffer;
  tPiece.sBytes = sHeader;
  tPiece.asWrong = CheckHeader(sHeader);
  tPiece.asWrong.push_back(m_sWhySkipped);
  m_sBuffer.clear();
  m_bPacket = false;
  m_bAligned = true;
  m_iSkip = 0;
  Emit(tPiece, m_iCame);
}

void CFramer::Gap(uint64_t p_iBytes, const T_Moment& p_tMoment) {
  m_bTouched = true;
  const std::string sMissing = MissingText(p_iBytes);
  SetLast(p_tMoment);
  if (m_bPacket && m_iSkip == 0 && m_iSize > m_sBuffer.size()) {    // where it ends is known
    StartSkipping(m_iSize - m_sBuffer.size(), sMissing);
  } else if (m_bPacket && m_iSkip > 0) {
    m_sWhySkipped += "; " + sMissing;
  } else if (m_bPacket) {
    T_Piece tPiece;
    tPiece.bPacket = true;
    const std::string sBytes = m_sBuffer;
    tPiece.sBytes = sBytes;
    tPiece.asWrong = {sMissing + " in the header"};
    m_sBuffer.clear();
    Emit(tPiece, sBytes.size());
  }
  if (m_bPacket && m_iSkip >= p_iBytes && m_iSkip > 0) {
    m_iSkip -= p_iBytes;
    if (m_iSkip == 0) EmitSkipped();
    return;
  }
  if (m_bPacket && m_iSkip > 0) EmitSkipped();
  if (m_bAligned && !m_bPacket) {
    AddJunk(m_sBuffer);
    EmitJunk();
    m_iLost = p_iBytes;
    m_tJunk = p_tMoment;
  }
  m_sBuffer.clear();
  m_bPacket = false;
  m_bAligned = false;
}

void CFramer::End() {
  const size_t iBefore = atPacket.size();
  if (m_iSkip > 0) {
    m_sWhySkipped += "; the packet ends after " + std::to_string(m_iCame) + " of " + std::to_string(m_iSize) + " bytes";
    EmitSkipped();
  } else if (m_bPacket) {
    T_Piece tPiece;
    tPiece.bPacket = true;
    tPiece.iSize = m_iSize;
    const std::string sBytes = m_sBuffer;
    tPiece.sBytes = sBytes;
    Check(tPiece);
    Emit(tPiece, sBytes.size());
  } else {
    AddJunk(m_sBuffer);
    EmitJunk();
  }
  if (atPacket.size() > iBefore) atPacket.back().bCut = atPacket.back().bPacket;
  m_sBuffer.clear();
  m_bPacket = false;
  m_bAligned = true;
}

void CFramer::AddJunk(std::string_view p_sBytes) {
  if ((!m_bAligned && m_iLost == 0) || p_sBytes.empty()) return;
  if (m_iJunk == 0 && m_iLost == 0) m_tJunk = m_tFirst;
  m_iJunk += p_sBytes.size();
  m_sJunk += p_sBytes.substr(0, JUNK - std::min(JUNK, m_sJunk.size()));
}

void CFramer::EmitJunk() {
  if (m_iJunk == 0 && m_iLost == 0) return;
  T_Piece tPiece;
  const std::string sJunk = m_sJunk;
  tPiece.sBytes = sJunk;
  if (m_iLost > 0) tPiece.asWrong.push_back(MissingText(m_iLost));
  if (m_iJunk > 0) {
    const char* szBegin = m_iJunk == 1 ? " that begins" : " that begin";
    tPiece.asWrong.push_back(Counted(static_cast<size_t>(m_iJunk), "byte") + szBegin + " no packet");
  }
  const T_Moment tFirst = m_tFirst;
  m_tFirst = m_tJunk;
  Emit(tPiece, m_iJunk);
  m_tFirst = tFirst;
  m_sJunk.clear();
  m_iJunk = m_iLost = 0;
}

void CFramer::Emit(T_Piece& p_tPiece, uint64_t p_iSize) {
  T_Packet t;
  t.tFirst = m_tFirst;
  t.tLast = m_tLast;
  t.bPacket = p_tPiece.bPacket;
  t.iSize = p_iSize;
  t.asWrong = p_tPiece.asWrong;
  if (p_tPiece.HasHeader()) {
    t.iService = FieldNumber(p_tPiece.Header(), CTcpAdaptor::SERVICE);
    t.iMessage = FieldNumber(p_tPiece.Header(), CTcpAdaptor::MESSAGE);
    t.bKey = HasKey(p_tPiece.Header());
  }
  constexpr int REJECT = 10;
  if (t.bPacket && t.asWrong.empty() && t.iMessage == REJECT) ReadRejection(p_tPiece.sBody, t);
  if (m_tWish.bDetail && m_tWish.bJson) {
    t.pDetail = std::make_shared<nlohmann::ordered_json>(ToJson(p_tPiece, m_tWish.bShowKey));
    t.iDetail = p_tPiece.sBytes.size() + p_tPiece.sBody.size();
  } else if (m_tWish.bDetail) {
    std::ostringstream cText;
    PrintPiece(cText, p_tPiece, m_tWish.bShowKey);
    t.sDetail = cText.str();
  }
  if (m_tWish.bXml && p_tPiece.IsWhole()) t.sBody = p_tPiece.sBody;
  atPacket.push_back(std::move(t));
}

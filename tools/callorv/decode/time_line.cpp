// The time line of a capture's calls.
#include "decode/time_line.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <vector>

#include "command.h"
#include "common/text.h"
#include "decode/call_line.h"
#include "decode/capture_reader.h"
#include "decode/conversations.h"

namespace {

// What is printed in the order of time, once all is known.
struct T_Entry {
  int64_t iTime = 0;
  std::string sLine;
  std::shared_ptr<nlohmann::ordered_json> pCall;
};

class CTimeLine {
 public:
  explicit CTimeLine(const T_TimeLineOptions& p_tOptions) : m_t(p_tOptions) {}

  void Add(const T_Call& p_tCall) {
    ++m_aiOutcome[p_tCall.eOutcome];
    const T_Wish& tWish = m_t.tWish;
    if (tWish.bXml) {
      PrintBody(p_tCall.tRequest);
      PrintBody(p_tCall.tReply);
    } else if (m_t.bFollow) {
      std::cout << (tWish.bJson ? CallAsJson(p_tCall).dump(-1, ' ', false, REPLACE) + '\n' : CallLine(p_tCall));
      PrintDetail(p_tCall);
    } else if (tWish.bDetail && !tWish.bJson) {    // too much to keep
      std::cout << CallLine(p_tCall);
      PrintDetail(p_tCall);
    } else {
      for (const auto* p : {&p_tCall.tRequest, &p_tCall.tReply}) m_iKept += *p ? (*p)->iDetail : 0;
      if (m_iKept > MOST) throw CFailure("more than 128 MB for one object; with --follow, each call is one");
      T_Entry tEntry;
      tEntry.iTime = p_tCall.Any().tFirst.iNano;
      if (tWish.bJson) {
        tEntry.pCall = std::make_shared<nlohmann::ordered_json>(CallAsJson(p_tCall));
      } else {
        tEntry.sLine = CallLine(p_tCall);
      }
      m_atEntry.push_back(std::move(tEntry));
    }
    if (m_t.bFollow && !std::cout.flush()) throw CFailure("standard output cannot be written");
  }

  void Print(nlohmann::ordered_json& p_cObject) {
    if (m_t.bFollow || m_t.tWish.bXml) return;
    std::stable_sort(m_atEntry.begin(), m_atEntry.end(), [](const T_Entry& p_tA, const T_Entry& p_tB) {
      return p_tA.iTime < p_tB.iTime;
    });
    if (m_t.tWish.bJson) {
      nlohmann::ordered_json& cCalls = p_cObject["calls"] = nlohmann::ordered_json::array();
      for (T_Entry& t : m_atEntry) cCalls.push_back(std::move(*t.pCall));
      return;
    }
    for (const T_Entry& t : m_atEntry) std::cout << t.sLine;
    std::cout << Counted(Count(), "call");
    const char* szBefore = ": ";
    for (int i = 0; i < T_Call::OUTCOMES; ++i) {
      if (m_aiOutcome[i] == 0) continue;
      std::cout << szBefore << m_aiOutcome[i] << ' ' << OutcomeName(static_cast<T_Call::E_Outcome>(i));
      szBefore = ", ";
    }
    std::cout << '\n';
  }

  size_t Count() const { return m_aiOutcome[0] + m_aiOutcome[1] + m_aiOutcome[2] + m_aiOutcome[3]; }
  size_t Damaged() const { return m_aiOutcome[T_Call::DAMAGED]; }

 private:
  enum : size_t { MOST = 128 * 1024 * 1024 };    // bytes of packets for one object
  static constexpr auto REPLACE = nlohmann::ordered_json::error_handler_t::replace;

  const T_TimeLineOptions& m_t;
  size_t m_aiOutcome[T_Call::OUTCOMES] = {};
  std::vector<T_Entry> m_atEntry;
  size_t m_iKept = 0;

  static void PrintBody(const std::optional<T_Packet>& p_t) {
    if (p_t && p_t->bPacket && !p_t->sBody.empty()) std::cout << p_t->sBody << '\n';
  }
  void PrintDetail(const T_Call& p_tCall) const {
    if (m_t.tWish.bJson) return;
    if (p_tCall.tRequest && m_t.tWish.bDetail) std::cout << "  request:\n" << p_tCall.tRequest->sDetail;
    if (p_tCall.tReply && m_t.tWish.bDetail) std::cout << "  reply:\n" << p_tCall.tReply->sDetail;
  }
};

// Frames that are not read, and why.
struct T_Unread {
  size_t iFragments = 0, iShort = 0, iUnknown = 0;
  int iLink = 0;    // of the first that is not known

  void Add(E_Frame p_eFrame, int p_iLink) {
    iFragments += p_eFrame == E_Frame::FRAGMENT;
    iShort += p_eFrame == E_Frame::SHORT;
    if (p_eFrame == E_Frame::UNKNOWN_LINK && iUnknown++ == 0) iLink = p_iLink;
  }
  std::vector<std::string> Notes() const {
    std::vector<std::string> as;
    const auto fnAdd = [&](size_t p_iCount, const std::string& p_sWhat) {
      if (p_iCount > 0) as.push_back(Counted(p_iCount, "frame") + p_sWhat);
    };
    fnAdd(iFragments, " with a fragment of an IP packet: not put together");
    fnAdd(iShort, " without whole headers of IP and TCP: not read");
    const std::string sLink = iLink < 0 ? "an interface that is not described" : "link type " + std::to_string(iLink);
    fnAdd(iUnknown, " of " + sLink + ": not read");
    return as;
  }
};

}    // namespace

void PrintTimeLine(CByteSource& p_cSource, const T_TimeLineOptions& p_tOptions, nlohmann::ordered_json& p_cObject) {
  if (p_tOptions.bFollow) p_cSource.EndAtSignal();
  CCaptureReader cReader(p_cSource);
  CTimeLine cTimeLine(p_tOptions);
  CConversations cConversations(p_tOptions.tWish, p_tOptions.iPort, [&](const T_Call& t) { cTimeLine.Add(t); });
  T_Unread tUnread;
  T_Segment tSegment;
  for (T_Frame tFrame; cReader.Next(tFrame);) {
    const E_Frame eFrame = TakeSegment(tFrame.iLink, tFrame.sBytes, tFrame.iLength, tSegment);
    tUnread.Add(eFrame, tFrame.iLink);
    if (eFrame == E_Frame::SEGMENT) cConversations.Add(tSegment, {tFrame.bTime, tFrame.bNano, tFrame.iTime});
  }
  cConversations.Finish();
  cTimeLine.Print(p_cObject);
  const std::vector<std::string> asNote = tUnread.Notes();
  if (p_tOptions.tWish.bJson && !p_tOptions.bFollow) {
    p_cObject["frames"] = cReader.Count();
    p_cObject["notes"] = asNote;
  } else {
    std::cout.flush();
    for (const std::string& s : asNote) Warn(p_cSource.Name() + ": " + s);
  }
  if (!cReader.Why().empty()) throw CFailure(p_cSource.Name() + ": " + cReader.Why());
  if (cTimeLine.Damaged() > 0) {
    throw CFailure(p_cSource.Name() + ": " + std::to_string(cTimeLine.Damaged()) + " damaged among " +
                   Counted(cTimeLine.Count(), "call"));
  }
  if (cTimeLine.Count() == 0 && !p_tOptions.bFollow) throw CFailure(p_cSource.Name() + ": no call in it");
}

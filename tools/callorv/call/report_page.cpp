// A measurement as a page on its own.
#include "call/report_page.h"

#include <callorv/base/str.h>
#include <callorv/version.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "call/measurement_out.h"
#include "call/svg_chart.h"
#include "common/text.h"

namespace {

constexpr char s_szHead[] = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; img-src data:">
<link rel="icon" href="data:,">
<title>callorv call: a measurement</title>
<style>
:root { --back: #fff; --text: #1c2330; --soft: #5b6576; --line: #dde2ea; --card: #f5f7fa; --one: #1f6feb;
  --two: #0d8a6a; --three: #b35c00; --four: #8250df; --bad: #c62828; }
@media (prefers-color-scheme: dark) { :root { --back: #14181f; --text: #e4e8ef; --soft: #9aa5b5; --line: #2c3442;
  --card: #1c222c; --one: #6cb2ff; --two: #4fd1a5; --three: #ffb35c; --four: #c297ff; --bad: #ff7b72; } }
body { background: var(--back); color: var(--text); font: 15px/1.5 system-ui, sans-serif; margin: 0 auto;
  max-width: 60em; padding: 1.5em; }
h1 { font-size: 1.5em; margin: 0; } h2 { font-size: 1.1em; margin: 2em 0 .4em; }
p { margin: .3em 0; } .soft { color: var(--soft); } .bad { color: var(--bad); }
code { background: var(--card); border-radius: 4px; display: block; overflow-wrap: anywhere; padding: .6em .8em; }
dl { display: grid; gap: .7em; grid-template-columns: repeat(auto-fill, minmax(8.5em, 1fr)); margin: 1.2em 0; }
dl div { background: var(--card); border-radius: 6px; padding: .6em .9em; }
dt { color: var(--soft); font-size: .85em; } dd { font-size: 1.25em; margin: 0; white-space: nowrap; }
table { border-collapse: collapse; } th { color: var(--soft); font-weight: normal; text-align: left; }
th, td { border-bottom: 1px solid var(--line); padding: .25em 1.5em .25em 0; vertical-align: top; }
td.number { font-variant-numeric: tabular-nums; text-align: right; white-space: nowrap; }
svg { display: block; height: auto; width: 100%; } svg text { fill: var(--soft); font-size: 12px; }
polyline { fill: none; stroke-width: 1.8; } .grid { stroke: var(--line); } circle { stroke: none; }
.p50 { color: var(--one); stroke: var(--one); } .p90 { color: var(--two); stroke: var(--two); }
.p99 { color: var(--three); stroke: var(--three); } .max { color: var(--four); stroke: var(--four); }
.failed { color: var(--bad); stroke: var(--bad); } .wanted { color: var(--soft); stroke: var(--soft);
  stroke-dasharray: 5 4; } circle { fill: currentColor; } rect { fill: var(--one); stroke: none; }
.key { font-size: .9em; } .key span { margin-right: 1.2em; } .key span::before { content: "\25CF\00A0"; }
</style>
</head>
<body>
)";

using CPoints = std::vector<std::pair<double, double>>;

// A page that is being written.
class CPage {
 public:
  CPage(const T_Measurement& p_t, const T_Load& p_tLoad) : m_t(p_t), m_tLoad(p_tLoad), m_sOut(s_szHead) {
    // The last second is a part of one: what it has less than the others means nothing.
    m_iSeconds = p_t.atSeconds.size();
    if (m_iSeconds > 1 && p_t.dSeconds < static_cast<double>(m_iSeconds)) --m_iSeconds;
    m_iStep = (m_iSeconds + POINTS_MAX - 1) / POINTS_MAX;
  }

  std::string Write(const std::string& p_sCommandLine) {
    Head(p_sCommandLine);
    if (m_t.uCalls > 0) {
      LatencyOverTime();
      CallsOverTime();
      Percentiles();
      Histogram();
    }
    Errors();
    return m_sOut + "<p class=\"soft\">callorv " CALLORV_VERSION "</p>\n</body>\n</html>\n";
  }

 private:
  enum : size_t { POINTS_MAX = 600 };
  enum { TO_A_POWER = 50 };    // points of the percentiles
  const T_Measurement& m_t;
  const T_Load& m_tLoad;
  std::string m_sOut;
  size_t m_iSeconds;    // that are drawn
  size_t m_iStep;       // so many make a point

  void Paragraph(const char* p_szClass, const std::string& p_sText) {
    m_sOut += std::string("<p class=\"") + p_szClass + "\">" + EscapeHtml(p_sText) + "</p>\n";
  }
  void Heading(const char* p_szText) { m_sOut += std::string("<h2>") + p_szText + "</h2>\n"; }
  void Card(const char* p_szName, const std::string& p_sText, bool p_bBad = false) {
    m_sOut += std::string("<div><dt>") + p_szName + "</dt><dd" + (p_bBad ? " class=\"bad\">" : ">") +
              EscapeHtml(p_sText) + "</dd></div>\n";
  }
  void Key(const std::vector<std::pair<const char*, const char*>>& p_aNames) {    // class and name
    m_sOut += "<p class=\"key\">";
    for (const auto& [szClass, szName] : p_aNames) {
      m_sOut += std::string("<span class=\"") + szClass + "\">" + szName + "</span>";
    }
    m_sOut += "</p>\n";
  }
  std::string Percentile(double p_dPercent) const {
    return LatencyText(static_cast<double>(m_t.cMicros.Percentile(p_dPercent)));
  }
  T_Axis Latencies() const {
    return LatencyAxis(static_cast<double>(m_t.cMicros.Min()), static_cast<double>(m_t.cMicros.Max()));
  }

  void Head(const std::string& p_sCommandLine) {
    m_sOut += "<h1>A measurement of calls</h1>\n";
    const CString sLasted = CFormat("%.3f s", m_t.dSeconds);
    std::string sText = "Begun at " + TimeText(m_t.tBegun) + ", measured for " + sLasted.ToStr() + " from " +
                        Counted(static_cast<size_t>(m_tLoad.iThreads), "thread");
    if (m_tLoad.iInFlight > 0) sText += ", " + std::to_string(m_tLoad.iInFlight) + " in flight each";
    if (m_tLoad.tWarmUp.count() > 0) sText += ", after " + Counted(m_t.uWarmUpCalls, "call") + " to warm up";
    Paragraph("soft", sText + (m_t.bInterrupted ? "; interrupted." : "."));
    Paragraph("soft", m_tLoad.cPace.IsOpen()
                          ? "Open loop: latency counts from when a call was due, whether or not the client was free."
                          : "Closed loop: the next call of a thread begins when one is over; while the server halts, "
                            "there are fewer calls.");
    m_sOut += "<code>" + EscapeHtml(p_sCommandLine) + "</code>\n<dl>\n";
    Card("calls", std::to_string(m_t.uCalls));
    Card("calls a second", CFormat("%.1f", RateOf(m_t)).ToStr());
    if (m_tLoad.cPace.IsOpen()) Card("wanted", CFormat("%.10g", m_tLoad.cPace.PerSecond()).ToStr());
    Card("50 %", Percentile(50));
    Card("99 %", Percentile(99));
    Card("99.9 %", Percentile(99.9));
    Card("longest", Percentile(100));
    Card("failed", std::to_string(m_t.uFailed), m_t.uFailed > 0);
    if (m_t.uNotBegun > 0) Card("not made", std::to_string(m_t.uNotBegun), true);
    m_sOut += "</dl>\n";
    if (m_t.uNotBegun > 0) Paragraph("bad", "Not made: calls that no thread was free for when they were due.");
  }

  // A point for each step: what p_fn says of it.
  template <class F>
  CPoints Points(F p_fn) const {
    CPoints aPoints;
    for (size_t i = 0; i < m_iSeconds; i += m_iStep) {
      const size_t iEnd = std::min(i + m_iStep, m_iSeconds);
      const T_Second* pFrom = &m_t.atSeconds[i];
      aPoints.emplace_back(static_cast<double>(i + iEnd) / 2, p_fn(pFrom, pFrom + (iEnd - i)));
    }
    return aPoints;
  }
  // The greatest of a step's seconds; a gap where no call ended.
  CPoints Greatest(uint64_t T_Second::*p_pMember) const {
    return Points([=](const T_Second* p_pFrom, const T_Second* p_pEnd) {
      double dMost = NAN;
      for (; p_pFrom < p_pEnd; ++p_pFrom) {
        if (p_pFrom->uCalls > 0) dMost = std::fmax(dMost, static_cast<double>(p_pFrom->*p_pMember));
      }
      return dMost;
    });
  }
  CPoints Mean(uint64_t T_Second::*p_pMember) const {
    return Points([=](const T_Second* p_pFrom, const T_Second* p_pEnd) {
      double dSum = 0;
      for (const T_Second* p = p_pFrom; p < p_pEnd; ++p) dSum += static_cast<double>(p->*p_pMember);
      return dSum / static_cast<double>(p_pEnd - p_pFrom);
    });
  }

  void LatencyOverTime() {
    Heading("Latency over time");
    Key({{"p50", "50 %"}, {"p90", "90 %"}, {"p99", "99 %"}, {"max", "longest"}});
    CSvgChart cChart("Latency over time", TimeAxis(static_cast<double>(m_iSeconds)), Latencies());
    cChart.AddLine("max", Greatest(&T_Second::uMax));
    cChart.AddLine("p99", Greatest(&T_Second::uP99));
    cChart.AddLine("p90", Greatest(&T_Second::uP90));
    cChart.AddLine("p50", Greatest(&T_Second::uP50));
    m_sOut += cChart.Svg();
    Paragraph("soft", "Of the calls that ended in " +
                          (m_iStep > 1 ? "each second, the greatest of " + Counted(m_iStep, "second") : "each second") +
                          ".");
  }

  void CallsOverTime() {
    Heading("Calls a second");
    const CPoints aCalls = Mean(&T_Second::uCalls);
    double dMost = m_tLoad.cPace.PerSecond();
    for (const auto& [dX, dY] : aCalls) dMost = std::max(dMost, dY);
    const auto dEnd = static_cast<double>(m_iSeconds);
    CSvgChart cChart("Calls a second", TimeAxis(dEnd), LinearAxis(dMost, ""));
    if (m_tLoad.cPace.IsOpen()) {
      Key({{"p50", "ended"}, {"failed", "failed"}, {"wanted", "wanted"}});
      cChart.AddLine("wanted", {{0, m_tLoad.cPace.PerSecond()}, {dEnd, m_tLoad.cPace.PerSecond()}});
    } else {
      Key({{"p50", "ended"}, {"failed", "failed"}});
    }
    cChart.AddLine("p50", aCalls);
    cChart.AddLine("failed", Mean(&T_Second::uFailed));
    m_sOut += cChart.Svg();
  }

  // Over the part of calls that took longer, one in ten, in a hundred...: the end is what users complain of.
  void Percentiles() {
    Heading("Percentiles");
    const double dMost = std::min(std::max(static_cast<double>(m_t.uCalls), 10.0), 1e6);
    T_Axis tX;
    tX.dFrom = 1;
    tX.dTo = dMost;
    tX.bLogarithmic = true;
    static constexpr const char* s_szaTicks[] = {"0 %", "90 %", "99 %", "99.9 %", "99.99 %", "99.999 %", "99.9999 %"};
    double dTick = 1;
    for (const char* szTick : s_szaTicks) {
      if (dTick <= dMost * (1 + 1e-9)) tX.aTicks.emplace_back(dTick, szTick);
      dTick *= 10;
    }
    CPoints aPoints;
    for (int i = 0; i <= std::log10(dMost) * TO_A_POWER; ++i) {
      const double dPart = std::pow(10, static_cast<double>(i) / TO_A_POWER);
      aPoints.emplace_back(dPart, static_cast<double>(m_t.cMicros.Percentile(100 - 100 / dPart)));
    }
    aPoints.emplace_back(dMost, static_cast<double>(m_t.cMicros.Percentile(100 - 100 / dMost)));
    CSvgChart cChart("Percentiles of the latency", tX, Latencies());
    cChart.AddLine("p50", aPoints);
    m_sOut += cChart.Svg() + "<table>\n<tr>";
    static constexpr struct {
      const char* szName;
      double dPercent;
    } s_at[] = {{"50 %", 50}, {"90 %", 90}, {"99 %", 99}, {"99.9 %", 99.9}, {"99.99 %", 99.99}, {"longest", 100}};
    m_sOut += "<th>shortest</th><th>mean</th>";
    for (const auto& t : s_at) m_sOut += std::string("<th>") + t.szName + "</th>";
    m_sOut += "</tr>\n<tr>";
    const auto fnCell = [&](const std::string& p_sText) { m_sOut += "<td class=\"number\">" + p_sText + "</td>"; };
    fnCell(LatencyText(static_cast<double>(m_t.cMicros.Min())));
    fnCell(LatencyText(m_t.cMicros.Mean()));
    for (const auto& t : s_at) fnCell(Percentile(t.dPercent));
    m_sOut += "</tr>\n</table>\n";
  }

  void Histogram() {
    Heading("Histogram");
    const auto atRows = m_t.cMicros.Buckets(false);
    double dMost = 0;
    for (const auto& t : atRows) dMost = std::max(dMost, static_cast<double>(t.uCount));
    T_Axis tX = LatencyAxis(static_cast<double>(atRows.front().uFrom), static_cast<double>(atRows.back().uBelow));
    CSvgChart cChart("How many calls took how long", tX, LinearAxis(dMost, ""));
    for (const auto& t : atRows) {
      const auto dFrom = static_cast<double>(t.uFrom), dBelow = static_cast<double>(t.uBelow);
      if (t.uCount == 0) continue;
      cChart.AddBar("bar", dFrom, dBelow, static_cast<double>(t.uCount),
                    LatencyText(dFrom) + " to " + LatencyText(dBelow) + ": " + Counted(t.uCount, "call"));
    }
    m_sOut += cChart.Svg();
  }

  void Errors() {
    Heading("Errors");
    if (m_t.cFailures.empty()) return Paragraph("soft", "None.");
    m_sOut += "<table>\n<tr><th>calls</th><th>code</th><th>text of the first</th></tr>\n";
    for (const auto& [iCode, tFailure] : m_t.cFailures) {
      m_sOut += "<tr><td class=\"number\">" + std::to_string(tFailure.uCount) + "</td><td class=\"number\">" +
                std::to_string(iCode) + "</td><td>" + EscapeHtml(Printable(tFailure.sText, false)) + "</td></tr>\n";
    }
    m_sOut += "</table>\n";
  }
};

}    // namespace

std::string ReportPage(const T_Measurement& p_t, const T_Load& p_tLoad, const std::string& p_sCommandLine) {
  return CPage(p_t, p_tLoad).Write(p_sCommandLine);
}

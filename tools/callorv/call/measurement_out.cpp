// A measurement for people and for programs.
#include "call/measurement_out.h"

#include <callorv/base/str.h>

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <sstream>

#include "common/text.h"

namespace {

using Json = nlohmann::ordered_json;

double Seconds(std::chrono::nanoseconds p_t) { return std::chrono::duration<double>(p_t).count(); }

// A number without the zeroes behind it: 500, 0.5.
std::string Short(double p_d) {
  std::ostringstream cOut;
  cOut << std::setprecision(12) << p_d;
  return cOut.str();
}

std::string Millis(double p_dMicros) { return CFormat("%.3f ms", p_dMicros / 1000).ToStr(); }

void PrintBars(std::ostream& p_cOut, const CHistogram& p_c) {
  enum { ROWS_MAX = 20, WIDTH = 50 };
  auto atRows = p_c.Buckets(false);
  const auto iEmpty = std::count_if(atRows.begin(), atRows.end(), [](const auto& t) { return t.uCount == 0; });
  if (atRows.size() > ROWS_MAX || static_cast<size_t>(iEmpty) * 2 > atRows.size()) atRows = p_c.Buckets(true);
  uint64_t uMost = 1;
  for (const auto& t : atRows) uMost = std::max(uMost, t.uCount);
  for (const auto& t : atRows) {
    const auto iBar = static_cast<size_t>((t.uCount * WIDTH + uMost - 1) / uMost);    // none is invisible
    p_cOut << CFormat("%10.3f to %10.3f ms  %10s", static_cast<double>(t.uFrom) / 1000,
                      static_cast<double>(t.uBelow) / 1000, std::to_string(t.uCount).c_str())
                  .ToStr()
           << (iBar > 0 ? "  " : "") << std::string(iBar, '#') << '\n';
  }
}

}    // namespace

std::string TimeText(std::chrono::system_clock::time_point p_t) {
  const std::time_t iTime = std::chrono::system_clock::to_time_t(p_t);
  std::tm t{};
  gmtime_r(&iTime, &t);
  char szText[32];
  return {szText, std::strftime(szText, sizeof szText, "%Y-%m-%dT%H:%M:%SZ", &t)};
}

double RateOf(const T_Measurement& p_t) {
  return p_t.uCalls == 0 ? 0 : static_cast<double>(p_t.uCalls) / std::max(p_t.dSeconds, 1e-6);
}

Json MeasurementToJson(const T_Measurement& p_t, const T_Load& p_tLoad) {
  const CHistogram& c = p_t.cMicros;
  Json cFailures = Json::array(), cHistogram = Json::array(), cSeconds = Json::array();
  for (const auto& [iCode, tFailure] : p_t.cFailures) {
    cFailures.push_back({{"code", iCode}, {"text", ToUtf8(tFailure.sText)}, {"count", tFailure.uCount}});
  }
  for (const auto& t : c.Buckets(false)) {
    cHistogram.push_back({{"from_us", t.uFrom}, {"below_us", t.uBelow}, {"count", t.uCount}});
  }
  for (size_t i = 0; i < p_t.atSeconds.size(); ++i) {
    const T_Second& t = p_t.atSeconds[i];
    cSeconds.push_back({{"second", i},
                        {"calls", t.uCalls},
                        {"failed", t.uFailed},
                        {"latency_us", {{"p50", t.uP50}, {"p90", t.uP90}, {"p99", t.uP99}, {"max", t.uMax}}}});
  }
  Json cAll{{"calls", p_t.uCalls},
            {"threads", p_tLoad.iThreads},
            {"seconds", p_t.dSeconds},
            {"calls_per_second", RateOf(p_t)},
            {"latency_us",
             {{"p50", c.Percentile(50)},
              {"p90", c.Percentile(90)},
              {"p99", c.Percentile(99)},
              {"p99_9", c.Percentile(99.9)},
              {"p99_99", c.Percentile(99.99)},
              {"max", c.Max()},
              {"min", c.Min()},
              {"mean", c.Mean()}}},
            {"failed", p_t.uFailed},
            {"errors", cFailures}};
  if (p_tLoad.iInFlight > 0) cAll["in_flight"] = p_tLoad.iInFlight;
  cAll["begun"] = TimeText(p_t.tBegun);
  cAll["rate"] = p_tLoad.cPace.IsOpen() ? Json(p_tLoad.cPace.PerSecond()) : Json();
  cAll["duration"] = p_tLoad.tDuration.count() > 0 ? Json(Seconds(p_tLoad.tDuration)) : Json();
  cAll["warm_up"] = {{"seconds", Seconds(p_tLoad.tWarmUp)}, {"calls", p_t.uWarmUpCalls}};
  cAll["not_begun"] = p_t.uNotBegun;
  cAll["interrupted"] = p_t.bInterrupted;
  cAll["histogram"] = cHistogram;
  cAll["over_time"] = cSeconds;
  return cAll;
}

void PrintMeasurement(std::ostream& p_cOut, const T_Measurement& p_t, const T_Load& p_tLoad) {
  const CHistogram& c = p_t.cMicros;
  const auto fnMillis = [&](double p_dPercent) { return Millis(static_cast<double>(c.Percentile(p_dPercent))); };
  p_cOut << Counted(p_t.uCalls, "call") << " from " << Counted(static_cast<size_t>(p_tLoad.iThreads), "thread");
  if (p_tLoad.iInFlight > 0) p_cOut << ", " << p_tLoad.iInFlight << " in flight each,";
  p_cOut << CFormat(" in %.3f s: %.0f calls/s", p_t.dSeconds, RateOf(p_t)).ToStr();
  if (p_tLoad.cPace.IsOpen()) p_cOut << ", " << Short(p_tLoad.cPace.PerSecond()) << " wanted";
  p_cOut << (p_t.bInterrupted ? "; interrupted\n" : "\n");
  if (p_tLoad.tWarmUp.count() > 0) {
    p_cOut << "not counted: " << Counted(p_t.uWarmUpCalls, "call") << " of the " << Short(Seconds(p_tLoad.tWarmUp))
           << " s before, to warm up\n";
  }
  if (p_t.uNotBegun > 0) {
    p_cOut << "not made: " << Counted(p_t.uNotBegun, "call")
           << " that no thread was free for when due; more --threads or --in-flight would have made more of them\n";
  }
  p_cOut << "latency  50 % " << fnMillis(50) << "  90 % " << fnMillis(90) << "  99 % " << fnMillis(99) << "  max "
         << fnMillis(100) << "\n         99.9 % " << fnMillis(99.9) << "  99.99 % " << fnMillis(99.99) << "  min "
         << Millis(static_cast<double>(c.Min())) << "  mean " << Millis(c.Mean()) << '\n';
  PrintBars(p_cOut, c);
  for (const auto& [iCode, tFailure] : p_t.cFailures) {
    p_cOut << tFailure.uCount << " x " << iCode << "  " << Printable(tFailure.sText, false) << '\n';
  }
}

std::string MeasurementToCsv(const T_Measurement& p_t) {
  std::string sOut = "second,calls,failed,p50_us,p90_us,p99_us,max_us\n";
  for (size_t i = 0; i < p_t.atSeconds.size(); ++i) {
    const T_Second& t = p_t.atSeconds[i];
    sOut += std::to_string(i);
    for (const uint64_t u : {t.uCalls, t.uFailed, t.uP50, t.uP90, t.uP99, t.uMax}) sOut += ',' + std::to_string(u);
    sOut += '\n';
  }
  return sOut;
}

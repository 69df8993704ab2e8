// A chart as SVG.
#include "call/svg_chart.h"

#include <callorv/base/str.h>

#include <algorithm>
#include <cmath>

namespace {

enum { WIDTH = 760, HEIGHT = 260, LEFT = 66, RIGHT = 32, TOP = 12, BOTTOM = 28 };

std::string Number(double p_d) { return CFormat("%.1f", p_d).ToStr(); }

// Up to three digits, without zeroes at the end.
std::string Short(double p_d) { return CFormat("%.3g", p_d).ToStr(); }

// Numbers from 1 on below 10, which are wanted times every power of ten.
using CSteps = std::vector<double>;
const CSteps s_aCoarse{1, 2, 5}, s_aFine{1, 1.5, 2, 3, 4, 5, 6, 8};

double PowerBelow(double p_d) { return std::pow(10, std::floor(std::log10(p_d) + 1e-9)); }

// The greatest of these that is not above p_d.
double StepBelow(double p_d, const CSteps& p_aSteps = s_aCoarse) {
  const double dPower = PowerBelow(p_d);
  double dStep = dPower;
  for (const double d : p_aSteps) {
    if (d * dPower <= p_d * (1 + 1e-9)) dStep = d * dPower;
  }
  return dStep;
}

// The least of these that is above p_d.
double StepAbove(double p_d, const CSteps& p_aSteps) {
  const double dPower = PowerBelow(p_d);
  for (const double d : p_aSteps) {
    if (d * dPower > p_d * (1 + 1e-9)) return d * dPower;
  }
  return 10 * dPower;
}

std::string Text(double p_dX, double p_dY, const char* p_szAnchor, const std::string& p_sText) {
  return "<text x=\"" + Number(p_dX) + "\" y=\"" + Number(p_dY) + "\" text-anchor=\"" + p_szAnchor + "\">" +
         EscapeHtml(p_sText) + "</text>\n";
}

std::string Line(const char* p_szClass, double p_dX1, double p_dY1, double p_dX2, double p_dY2) {
  return std::string("<line class=\"") + p_szClass + "\" x1=\"" + Number(p_dX1) + "\" y1=\"" + Number(p_dY1) +
         "\" x2=\"" + Number(p_dX2) + "\" y2=\"" + Number(p_dY2) + "\"/>\n";
}

}    // namespace

double T_Axis::PartOf(double p_dValue) const {
  const double dPart = bLogarithmic ? std::log(std::max(p_dValue, dFrom) / dFrom) / std::log(dTo / dFrom)
                                    : (p_dValue - dFrom) / (dTo - dFrom);
  return std::min(std::max(dPart, 0.0), 1.0);
}

T_Axis LinearAxis(double p_dMost, const char* p_szUnit) {
  const bool bWhole = *p_szUnit == '\0';    // how many there are
  const double dStep = std::max(StepBelow(std::max(p_dMost, 1e-3) / 3), bWhole ? 1.0 : 0.0);
  T_Axis t;
  for (int i = 0;; ++i) {
    t.dTo = i * dStep;
    t.aTicks.emplace_back(t.dTo, CFormat("%.10g", t.dTo).ToStr() + std::string(p_szUnit));
    if (i > 0 && t.dTo >= p_dMost * (1 - 1e-9)) return t;
  }
}

T_Axis LatencyAxis(double p_dLeast, double p_dMost) {
  T_Axis t;
  t.bLogarithmic = true;
  t.dFrom = StepBelow(std::max(p_dLeast, 1.0), s_aFine);
  t.dTo = StepAbove(std::max(p_dMost, 1.0), s_aFine);
  const double dWidth = t.dTo / t.dFrom;
  const CSteps aSteps = dWidth > 500 ? CSteps{1} : dWidth > 12 ? s_aCoarse : s_aFine;
  double d = StepBelow(t.dFrom, aSteps);
  if (d < t.dFrom * (1 - 1e-9)) d = StepAbove(d, aSteps);
  while (d <= t.dTo * (1 + 1e-9)) {
    t.aTicks.emplace_back(d, LatencyText(d));
    d = StepAbove(d, aSteps);
  }
  return t;
}

T_Axis TimeAxis(double p_dMost) {
  const double dUnit = p_dMost > 7200 ? 3600 : p_dMost > 600 ? 60 : 1;
  T_Axis t = LinearAxis(p_dMost / dUnit, dUnit > 60 ? " h" : dUnit > 1 ? " min" : " s");
  t.dTo = std::max(p_dMost, 1e-3);
  for (auto& [dAt, sText] : t.aTicks) dAt *= dUnit;
  while (t.aTicks.back().first > t.dTo * (1 + 1e-9)) t.aTicks.pop_back();
  return t;
}

CSvgChart::CSvgChart(const std::string& p_sTitle, T_Axis p_tX, T_Axis p_tY)
    : m_sTitle(p_sTitle), m_tX(std::move(p_tX)), m_tY(std::move(p_tY)) {}

double CSvgChart::X(double p_d) const { return LEFT + m_tX.PartOf(p_d) * (WIDTH - LEFT - RIGHT); }
double CSvgChart::Y(double p_d) const { return HEIGHT - BOTTOM - m_tY.PartOf(p_d) * (HEIGHT - TOP - BOTTOM); }

void CSvgChart::AddLine(const std::string& p_sClass, const std::vector<std::pair<double, double>>& p_aPoints) {
  enum { FEW = 60 };
  std::string sPoints, sMarks;
  const auto fnEnd = [&] {
    if (!sPoints.empty()) m_sBody += "<polyline class=\"" + p_sClass + "\" points=\"" + sPoints + "\"/>\n";
    sPoints.clear();
  };
  for (const auto& [dX, dY] : p_aPoints) {
    if (std::isnan(dY)) {
      fnEnd();
      continue;
    }
    sPoints += (sPoints.empty() ? "" : " ") + Number(X(dX)) + ',' + Number(Y(dY));
    sMarks += "<circle class=\"" + p_sClass + "\" cx=\"" + Number(X(dX)) + "\" cy=\"" + Number(Y(dY)) +
              "\" r=\"2\"/>\n";
  }
  fnEnd();
  if (p_aPoints.size() != 2 && p_aPoints.size() <= FEW) m_sBody += sMarks;
}

void CSvgChart::AddBar(const std::string& p_sClass, double p_dFromX, double p_dToX, double p_dY,
                       const std::string& p_sTitle) {
  const double dLeft = X(p_dFromX), dTop = Y(p_dY);
  m_sBody += "<rect class=\"" + p_sClass + "\" x=\"" + Number(dLeft) + "\" y=\"" + Number(dTop) + "\" width=\"" +
             Number(std::max(X(p_dToX) - dLeft - 1, 0.5)) + "\" height=\"" + Number(HEIGHT - BOTTOM - dTop) +
             "\"><title>" + EscapeHtml(p_sTitle) + "</title></rect>\n";
}

std::string CSvgChart::Svg() const {
  std::string sOut = CFormat("<svg viewBox=\"0 0 %d %d\" role=\"img\" aria-label=\"", WIDTH, HEIGHT).ToStr() +
                     EscapeHtml(m_sTitle) + "\">\n";
  for (const auto& [dAt, sText] : m_tY.aTicks) {
    sOut += Line("grid", LEFT, Y(dAt), WIDTH - RIGHT, Y(dAt)) + Text(LEFT - 6, Y(dAt) + 4, "end", sText);
  }
  for (const auto& [dAt, sText] : m_tX.aTicks) {
    sOut += Line("grid", X(dAt), TOP, X(dAt), HEIGHT - BOTTOM) + Text(X(dAt), HEIGHT - BOTTOM + 17, "middle", sText);
  }
  return sOut + m_sBody + "</svg>\n";
}

std::string EscapeHtml(const std::string& p_sText) {
  std::string sOut;
  for (const char c : p_sText) {
    switch (c) {
      case '&': sOut += "&amp;"; break;
      case '<': sOut += "&lt;"; break;
      case '>': sOut += "&gt;"; break;
      case '"': sOut += "&quot;"; break;
      default: sOut += c;
    }
  }
  return sOut;
}

std::string LatencyText(double p_dMicros) {
  if (p_dMicros < 999.5) return Short(p_dMicros) + " \xC2\xB5s";
  if (p_dMicros < 999500) return Short(p_dMicros / 1e3) + " ms";
  return (p_dMicros < 1e9 ? Short(p_dMicros / 1e6) : CFormat("%.0f", p_dMicros / 1e6).ToStr()) + " s";
}

// A chart as SVG: lines or bars over two axes. Colours and fonts are left to the page's style.
#ifndef CALLORV_TOOLS_SVG_CHART_H
#define CALLORV_TOOLS_SVG_CHART_H

#include <string>
#include <utility>
#include <vector>

// What goes from one end of a chart to the other, and what stands beside it.
struct T_Axis {
  double dFrom = 0, dTo = 1;
  bool bLogarithmic = false;    // then both are above 0
  std::vector<std::pair<double, std::string>> aTicks;

  double PartOf(double p_dValue) const;    // 0 at dFrom, 1 at dTo; no less and no more
};

// From 0 to p_dMost at least, in steps of 1, 2 or 5 times a power of ten; p_szUnit stands behind each number.
T_Axis LinearAxis(double p_dMost, const char* p_szUnit);
// Latencies, in microseconds, from p_dLeast to p_dMost at least. Logarithmic.
T_Axis LatencyAxis(double p_dLeast, double p_dMost);
// Seconds from 0 to p_dMost, which are called minutes or hours when there are many.
T_Axis TimeAxis(double p_dMost);

class CSvgChart {
 public:
  // p_sTitle: for those who do not see it.
  CSvgChart(const std::string& p_sTitle, T_Axis p_tX, T_Axis p_tY);

  // p_sClass has the colour. A point that is no number makes a gap. Few points are marked
  // each, unless there are two.
  void AddLine(const std::string& p_sClass, const std::vector<std::pair<double, double>>& p_aPoints);
  void AddBar(const std::string& p_sClass, double p_dFromX, double p_dToX, double p_dY, const std::string& p_sTitle);
  std::string Svg() const;

 private:
  const std::string m_sTitle;
  const T_Axis m_tX, m_tY;
  std::string m_sBody;

  double X(double p_d) const;
  double Y(double p_d) const;
};

// Text in HTML and SVG.
std::string EscapeHtml(const std::string& p_sText);
// "213 us", "1.52 ms", "2.5 s", with a Greek letter.
std::string LatencyText(double p_dMicros);

#endif

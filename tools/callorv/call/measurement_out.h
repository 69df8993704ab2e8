// A measurement for people and for programs.
#ifndef CALLORV_TOOLS_MEASUREMENT_OUT_H
#define CALLORV_TOOLS_MEASUREMENT_OUT_H

#include <nlohmann/json.hpp>
#include <ostream>

#include "call/measure.h"

// Texts of failures are ISO-8859-1.
nlohmann::ordered_json MeasurementToJson(const T_Measurement& p_t, const T_Load& p_tLoad);

// With a bar for each class of latencies.
void PrintMeasurement(std::ostream& p_cOut, const T_Measurement& p_t, const T_Load& p_tLoad);

// The seconds, one a line, below a line with names.
std::string MeasurementToCsv(const T_Measurement& p_t);

// "2026-01-31T23:59:59Z".
std::string TimeText(std::chrono::system_clock::time_point p_t);
// Calls a second; 0 when nothing was measured.
double RateOf(const T_Measurement& p_t);

#endif

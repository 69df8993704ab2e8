// Numbers of JSON as the types of a message, to the last digit.
#ifndef CALLORV_TOOLS_JSON_NUMBER_H
#define CALLORV_TOOLS_JSON_NUMBER_H

#include <string>
#include <string_view>

// Both take a number as JSON writes it. What counts is its value: 7, 7.0 and 70e-1 are the integer 7.

// False when it is no integer of 32 bits.
bool ToInt(std::string_view p_sNumber, int& p_iOut);

enum E_DoubleFit {
  FIT_WHOLE,      // the double, and its text on the wire, have every digit
  FIT_SHORTER,    // the double has every digit, its text on the wire fewer
  FIT_NOT         // too large, too near to 0, or more digits than a double has
};
E_DoubleFit ToDouble(std::string_view p_sNumber, double& p_dOut);

#endif

// The part of ready.c that is C++.
#include <xercesc/util/PlatformUtils.hpp>

extern "C" void StartParser() { xercesc::XMLPlatformUtils::Initialize(); }

// Makes a chosen allocation of the whole process fail: the parser's, its libraries', zlib's and the C library's as
// well.
//
// The program that links malloc_gate.cpp has it as its malloc, calloc, realloc, free and operator new. Only the thread
// that armed it is touched, and nothing fails before that. Not with the sanitizers, which bring a malloc of their own.
#ifndef TORTURE_MALLOC_GATE_H
#define TORTURE_MALLOC_GATE_H

#include <cstddef>

// Who asked for a block.
enum E_Asker {
  ASKER_OWN,      // this library, zlib, the C and C++ library on their behalf, this program
  ASKER_PARSER    // the parser and what it brings along
};

class CMallocGate {
 public:
  // Tells the askers apart from now on.
  static void Begin();

  // p_iNth: the first to fail, counted from 1, 0 for none; p_iCount: how many fail one after the other.
  static void Arm(int p_iNth, int p_iCount);
  static void Disarm();
  // Since Arm.
  static bool HasFailed();
  static bool HasParserFailed();    // one that the parser asked for

  // Blocks that were taken while armed, at any time, and that nobody freed yet.
  static long GetLive(E_Asker p_eAsker);
};

#endif

// Bytes of a file or a pipe, as they come.
#ifndef CALLORV_TOOLS_BYTE_SOURCE_H
#define CALLORV_TOOLS_BYTE_SOURCE_H

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "common/stop_signal.h"

class CByteSource {
 public:
  // "-" is standard input. Throws CFailure.
  explicit CByteSource(const std::string& p_sPath);
  ~CByteSource();
  CByteSource(const CByteSource&) = delete;
  CByteSource& operator=(const CByteSource&) = delete;

  const std::string& Name() const { return m_sName; }    // for people
  // From now on SIGINT and SIGTERM end the bytes: what a writer that got the same signal still sends is read.
  void EndAtSignal();

  // The next p_iSize bytes, which stay; fewer at the end. Throws CFailure.
  std::string_view Peek(size_t p_iSize);
  // The same, but they are taken. Valid until the next call.
  std::string_view Take(size_t p_iSize);
  // Takes p_iSize bytes, fewer at the end, and keeps none; returns how many there were.
  size_t Skip(size_t p_iSize);
  std::string TakeAll();

 private:
  const std::string m_sName;
  int m_iFd = 0;
  bool m_bEnd = false;
  std::string m_sBuffer;
  size_t m_iAt = 0;    // where in m_sBuffer the next byte is
  std::optional<CStopSignal> m_cStop;
  bool m_bStopped = false;    // one came
  std::chrono::steady_clock::time_point m_tStopBy;

  bool Wait();
  bool Fill();    // reads once; false at the end
};

#endif

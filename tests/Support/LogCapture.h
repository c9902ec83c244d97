// Collects the lines the log manager writes for the lifetime of the object.
#ifndef ZRN_TESTS_SUPPORT_LOGCAPTURE_H
#define ZRN_TESTS_SUPPORT_LOGCAPTURE_H

#include <zrn/Profile/GLog/LogManager.h>

#include <sstream>
#include <string>

namespace zrn::test {

class LogCapture {
public:
  LogCapture() { Log().AppendOuputStream(&m_stream); }
  ~LogCapture() { Log().RemoveOuputStream(&m_stream); }
  LogCapture(LogCapture const&) = delete;
  LogCapture& operator=(LogCapture const&) = delete;

  std::wstring Text() const { return m_stream.str(); }

private:
  static CLogManager& Log() { return CSingleton<CLogManager>::GetInstance(); }
  std::wostringstream m_stream;
};

} // namespace zrn::test

#endif

// Collects what the library sends to the debugger output for the lifetime of
// the object, and restores the previous handler afterwards.
#ifndef ZRN_TESTS_SUPPORT_DEBUGOUTPUTCAPTURE_H
#define ZRN_TESTS_SUPPORT_DEBUGOUTPUTCAPTURE_H

#include <zrn/System/Debugger.h>

#include <mutex>
#include <string>
#include <vector>

namespace zrn::test {

class DebugOutputCapture {
public:
  DebugOutputCapture()
      : m_previous(SetDebugOutputHandler([this](std::string_view text) {
          std::lock_guard<std::mutex> lock(m_mutex);
          m_texts.emplace_back(text);
        })) {}
  ~DebugOutputCapture() { SetDebugOutputHandler(std::move(m_previous)); }

  std::vector<std::string> Texts() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_texts;
  }

private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_texts;
  DebugOutputHandler m_previous;
};

} // namespace zrn::test

#endif

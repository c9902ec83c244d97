#include "Profile/GLog/LogFile.h"

#include "Platform/Platform.h"

#include <cerrno>
#include <system_error>
#include <utility>

namespace zrn {

namespace {

constexpr std::size_t kBufferSize = 32 * 1024;

} // namespace

CLogManager::LogFile::LogFile() { m_strBuffer.reserve(kBufferSize); }

CLogManager::LogFile::~LogFile() { Close(); }

bool CLogManager::LogFile::Open(std::string const& utf8Path) {
  if (m_pFile) {
    m_bGood = false;
    return false;
  }
  m_pFile = std::fopen(utf8Path.c_str(), "a");
  m_bGood = m_pFile != nullptr;
  m_bBroken = false;
  if (m_pFile) {
    std::setvbuf(m_pFile, nullptr, _IONBF, 0); // our own buffer is enough
    m_strPath = utf8Path;
  }
  return m_bGood;
}

void CLogManager::LogFile::Close() {
  if (!m_pFile)
    return;
  // Lines accepted before the file went bad still belong in it.
  Flush();
  if (std::fclose(m_pFile) != 0)
    Fail(errno);
  m_pFile = nullptr;
}

void CLogManager::LogFile::Write(std::string_view text) {
  if (!m_bGood)
    return;
  if (m_strBuffer.size() + text.size() > kBufferSize)
    Flush();
  if (text.size() >= kBufferSize) {
    WriteThrough(text);
    return;
  }
  m_strBuffer.append(text);
}

void CLogManager::LogFile::Flush() {
  if (m_strBuffer.empty() || !m_pFile)
    return;
  WriteThrough(m_strBuffer);
  m_strBuffer.clear();
}

bool CLogManager::LogFile::WriteThrough(std::string_view text) {
  if (m_bBroken)
    return false;
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), m_pFile) == text.size())
    return true;
  Fail(errno);
  return false;
}

void CLogManager::LogFile::Fail(int error) {
  m_bGood = false;
  if (std::exchange(m_bBroken, true))
    return;
  std::string report = "zrn: the log file \"" + m_strPath + "\" cannot be written";
  if (error != 0)
    report += " (" + std::generic_category().message(error) + ")";
  report += "; its later lines are dropped, the other log outputs go on\n";
  platform::ReportToDebuggerAndStandardError(report);
}

} // namespace zrn

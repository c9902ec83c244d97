#include "Profile/GLog/LogFile.h"

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
  if (m_pFile)
    std::setvbuf(m_pFile, nullptr, _IONBF, 0); // our own buffer is enough
  return m_bGood;
}

void CLogManager::LogFile::Close() {
  if (!m_pFile)
    return;
  // Lines accepted before the file went bad still belong in it.
  Flush();
  if (std::fclose(m_pFile) != 0)
    m_bGood = false;
  m_pFile = nullptr;
}

void CLogManager::LogFile::Write(std::string_view text) {
  if (m_strBuffer.size() + text.size() > kBufferSize)
    Flush();
  if (text.size() >= kBufferSize) {
    if (m_bGood && std::fwrite(text.data(), 1, text.size(), m_pFile) != text.size())
      m_bGood = false;
    return;
  }
  m_strBuffer.append(text);
}

void CLogManager::LogFile::Flush() {
  if (m_strBuffer.empty() || !m_pFile)
    return;
  if (std::fwrite(m_strBuffer.data(), 1, m_strBuffer.size(), m_pFile) != m_strBuffer.size())
    m_bGood = false;
  m_strBuffer.clear();
}

} // namespace zrn

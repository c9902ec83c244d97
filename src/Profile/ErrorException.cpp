#include <zrn/Profile/ErrorException.h>
#include <zrn/Profile/GLog/LogManager.h>

#include "Text/Utf8.h"

namespace zrn {

namespace {

std::wstring ComposeLogLine(std::wstring const& description, std::string const& file, long line) {
  std::wstring text;
  text.reserve(description.size() + file.size() + 32);
  text += description;
  text += L" - [FILE]: ";
  // Byte by byte, as the classic locale widens: no code-page conversion.
  for (char c : file)
    text += static_cast<wchar_t>(static_cast<unsigned char>(c));
  text += L" [LINE]: ";
  text += std::to_wstring(line);
  return text;
}

} // namespace

CErrorException::CErrorException(std::wstring const& description, char const* file, long line)
    : m_strDescription(description), m_strFile(file ? file : ""), m_nLine(line) {
  const std::wstring text = ComposeLogLine(m_strDescription, m_strFile, m_nLine);
  m_strWhat = detail::ToUtf8(text);
  CSingleton<CLogManager>::GetInstance().Log(text, LOG_LEVEL_CRITICAL);
}

CErrorException::CErrorException(CErrorException const& other) = default;

CErrorException& CErrorException::operator=(CErrorException const& other) = default;

CErrorException::~CErrorException() = default;

char const* CErrorException::what() const noexcept { return m_strWhat.c_str(); }

} // namespace zrn

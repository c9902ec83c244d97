#include "System/PathText.h"

#include "Text/Utf8.h"

#include <zrn/Text/StringTrans.h>

#include <memory>

namespace zrn::detail {

std::string ToSystemPath(std::wstring_view path) {
  std::string text = ToUtf8(path);
  for (char& c : text)
    if (c == '\\')
      c = '/';
  return text;
}

std::wstring FromSystemPath(std::string const& path) {
  if (path.empty())
    return {};
  std::unique_ptr<wchar_t[]> wide(GStdStringTrans::Utf8ToUnicode(path.c_str()));
  if (wide && wide[0] != L'\0')
    return wide.get();
  return std::wstring(path.begin(), path.end());
}

} // namespace zrn::detail

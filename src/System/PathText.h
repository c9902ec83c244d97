// Wide paths to and from the operating system's UTF-8 form.
#ifndef ZRN_SRC_SYSTEM_PATHTEXT_H
#define ZRN_SRC_SYSTEM_PATHTEXT_H

#include <string>
#include <string_view>

namespace zrn::detail {

/// Whether `c` separates path elements ("\" or "/").
constexpr bool IsPathSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

/// `path` in UTF-8 with every "\" read as "/".
std::string ToSystemPath(std::wstring_view path);

/// A UTF-8 path from the system as wide text; bytes that are not valid UTF-8
/// are widened one by one.
std::wstring FromSystemPath(std::string const& path);

} // namespace zrn::detail

#endif

#include <zrn/Text/StringHelpers.h>

#include "Platform/NumericLocale.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace zrn {

namespace {

constexpr std::size_t kFormatBufferSize = 1024;

bool IsWhiteSpaceChar(char c) { return IsWhiteSpace(static_cast<unsigned char>(c)); }

char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

std::string Lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), Lower);
  return text;
}

// Greedy matching that, when the rest fails, lets the last `*` cover one
// more character and tries again; earlier stars never need to change, since
// the last one can absorb whatever they would have covered.
bool MatchWildcards(std::string_view text, std::string_view pattern) {
  constexpr std::size_t kNone = std::string_view::npos;
  std::size_t t = 0;
  std::size_t p = 0;
  std::size_t star = kNone;
  std::size_t starText = 0; // where the text covered by `star` ends
  for (;;) {
    if (t == text.size())
      return p == pattern.size();
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      starText = t;
    } else if (p < pattern.size() && pattern[p] == text[t]) {
      ++p;
      ++t;
    } else if (star == kNone) {
      return false;
    } else {
      p = star + 1;
      t = ++starText;
    }
  }
}

} // namespace

std::string FFormatString(char const* format, va_list args) {
  const platform::ClassicNumbers numbers;
  char buffer[kFormatBufferSize];
  va_list attempt;
  va_copy(attempt, args);
  const int length = std::vsnprintf(buffer, sizeof buffer, format, attempt);
  va_end(attempt);
  if (length < 0)
    return {};
  const auto size = static_cast<std::size_t>(length);
  if (size < sizeof buffer)
    return std::string(buffer, size);
  // The first attempt told the exact length; one more pass writes it all.
  std::string text(size, '\0');
  va_copy(attempt, args);
  std::vsnprintf(text.data(), size + 1, format, attempt);
  va_end(attempt);
  return text;
}

std::string FFormatString(char const* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = FFormatString(format, args);
  va_end(args);
  return text;
}

bool IsWhiteSpace(int c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string Trim(std::string const& text, bool leftOnly) {
  std::size_t begin = 0;
  while (begin < text.size() && IsWhiteSpaceChar(text[begin]))
    ++begin;
  std::size_t end = text.size();
  if (!leftOnly)
    while (end > begin && IsWhiteSpaceChar(text[end - 1]))
      --end;
  return text.substr(begin, end - begin);
}

int Split(std::string const& text, std::vector<std::string>& tokens, std::string const& delimiters,
          bool skipEmpty) {
  std::size_t start = 0;
  for (;;) {
    const std::size_t end =
        delimiters.empty() ? std::string::npos : text.find_first_of(delimiters, start);
    std::string token =
        text.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (!token.empty() && (IsWhiteSpaceChar(token.front()) || IsWhiteSpaceChar(token.back())))
      token = Trim(token, false);
    if (!token.empty() || !skipEmpty)
      tokens.push_back(std::move(token));
    if (end == std::string::npos)
      break;
    start = end + 1;
  }
  return static_cast<int>(tokens.size());
}

bool Match(std::string const& text, std::string const& pattern, bool caseSensitive) {
  if (caseSensitive)
    return MatchWildcards(text, pattern);
  return MatchWildcards(Lowered(text), Lowered(pattern));
}

bool StartsWith(std::string const& text, std::string const& prefix, bool caseInsensitive) {
  if (prefix.empty() || prefix.size() > text.size())
    return false;
  if (!caseInsensitive)
    return text.compare(0, prefix.size(), prefix) == 0;
  return std::equal(prefix.begin(), prefix.end(), text.begin(),
                    [](char a, char b) { return Lower(a) == Lower(b); });
}

void SplitFilename(std::string const& path, std::string& fileName, std::string& directory) {
  std::string slashed = path;
  std::replace(slashed.begin(), slashed.end(), '\\', '/');
  const std::size_t slash = slashed.rfind('/');
  if (slash == std::string::npos) {
    fileName = path;
    directory.clear();
    return;
  }
  fileName = slashed.substr(slash + 1);
  directory = slashed.substr(0, slash + 1);
}

std::wstring ExtractFileExt(std::wstring const& path) {
  const std::size_t dot = path.rfind(L'.');
  return dot == std::wstring::npos ? std::wstring() : path.substr(dot);
}

bool IsNullPointer(void const* pointer) {
  static constexpr std::array<std::uintptr_t, 7> kFillPatterns = {
      0xCDCDCDCDCDCDCDCD, 0xCCCCCCCCCCCCCCCC, 0xFDFDFDFDFDFDFDFD, 0xFEEEFEEEFEEEFEEE,
      0xDDDDDDDDDDDDDDDD, 0xABABABABABABABAB, 0xFEFEFEFEFEFEFEFE};
  const auto value = reinterpret_cast<std::uintptr_t>(pointer);
  return value == 0 ||
         std::find(kFillPatterns.begin(), kFillPatterns.end(), value) != kFillPatterns.end();
}

} // namespace zrn

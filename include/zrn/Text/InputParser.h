// Reading a coordinate triple that a user typed, full-width characters
// included.
#ifndef ZRN_TEXT_INPUTPARSER_H
#define ZRN_TEXT_INPUTPARSER_H

#include <zrn/Export.h>

#include <string>

namespace zrn {

/// Parsing of typed coordinates; all static.
class ZRN_API CInputParser {
public:
  /// Reads "x,y,z" from `text` into the three outputs and returns 1; returns 0
  /// and leaves the outputs untouched on failure.
  ///
  /// Full-width characters count as their ASCII forms (ConvertToDBC). The text
  /// is split at commas; each of the first three fields must hold a decimal
  /// number ("-1.5", "2e3", ".5") and nothing after it (not even a blank),
  /// leading ASCII white space allowed. The point is a full stop under any
  /// process locale. An empty field, or a missing one, reads as 0; fields
  /// after the third are ignored. Fails for an empty text, a null output, or
  /// a value whose magnitude exceeds 1e100 or that is not a number (NaN).
  static int explainXYZ(std::wstring const& text, double* x, double* y, double* z);

  /// Stores in `*out` a new array (released with delete[]) of 2 x n + 1
  /// characters holding `text`, up to its first NUL, with full-width
  /// characters turned into ASCII: U+3000 into a space, U+FF01-U+FF5E into
  /// U+0021-U+007E. The characters after the text are NUL. Returns 1; a null
  /// `out` receives nothing.
  static int ConvertToDBC(std::wstring const& text, wchar_t** out);
};

} // namespace zrn

#endif // ZRN_TEXT_INPUTPARSER_H

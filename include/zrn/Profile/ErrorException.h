// The library's exception type.
//
// Constructing a CErrorException writes one critical line through the log
// manager: the description, " - [FILE]: ", the source file and " [LINE]: "
// with the line, so that every thrown error leaves a trace even if nobody
// catches it. Copies write nothing.
#ifndef ZRN_PROFILE_ERROREXCEPTION_H
#define ZRN_PROFILE_ERROREXCEPTION_H

#include <zrn/Export.h>

#include <exception>
#include <string>

namespace zrn {

/// An error with a description and the source position that raised it.
/// Thrown by value; may be caught as std::exception (whose what() it keeps).
class ZRN_API CErrorException : public std::exception {
public:
  /// Records the fields and logs the critical line. `file` is the thrower's
  /// relative source path (such as "Profile\\GLog") and may be null.
  CErrorException(std::wstring const& description, char const* file, long line);
  CErrorException(CErrorException const& other);
  CErrorException& operator=(CErrorException const& other);
  ~CErrorException() override;

  /// What went wrong.
  std::wstring const& GetDescription() const { return m_strDescription; }
  /// The source path of the thrower.
  std::string const& GetFile() const { return m_strFile; }
  /// The source line of the throw.
  long GetLine() const { return m_nLine; }

private:
  std::wstring m_strDescription;
  std::string m_strFile;
  long m_nLine;
};

} // namespace zrn

#endif // ZRN_PROFILE_ERROREXCEPTION_H

// The library's exception type.
//
// Constructing a CErrorException writes one critical line through the log
// manager: the description, " - [FILE]: ", the source file and " [LINE]: "
// with the line, so that every thrown error leaves a trace even if nobody
// catches it. Copies write nothing. what() gives the same text in UTF-8, so a
// handler that catches std::exception can report it as it is.
#ifndef ZRN_PROFILE_ERROREXCEPTION_H
#define ZRN_PROFILE_ERROREXCEPTION_H

#include <zrn/Export.h>

#include <exception>
#include <string>

namespace zrn {

/// An error with a description and the source position that raised it.
/// Thrown by value; may be caught as std::exception.
class ZRN_API CErrorException : public std::exception {
public:
  /// Records the fields and logs the critical line. `file` is the thrower's
  /// relative source path (such as "Profile\\GLog") and may be null.
  CErrorException(std::wstring const& description, char const* file, long line);
  CErrorException(CErrorException const& other);
  CErrorException& operator=(CErrorException const& other);
  ~CErrorException() override;

  /// The logged text in UTF-8, such as
  /// "Log Level Stack is empty. - [FILE]: Profile\GLog [LINE]: 120". Valid
  /// for the life of this object.
  char const* what() const noexcept override;

  /// The description alone, without the place that what() appends.
  std::wstring const& GetDescription() const { return m_strDescription; }
  /// The place of the throw as what() shows it: the file the thrower named
  /// (a source folder such as "Profile\GLog" for the library's own) and the
  /// line.
  std::string const& GetFile() const { return m_strFile; }
  long GetLine() const { return m_nLine; }

private:
  std::wstring m_strDescription;
  std::string m_strFile;
  long m_nLine;
  std::string m_strWhat;
};

} // namespace zrn

#endif // ZRN_PROFILE_ERROREXCEPTION_H

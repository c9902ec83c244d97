// The log manager's file: appended to, UTF-8, with a buffer of its own.
#ifndef ZRN_SRC_PROFILE_GLOG_LOGFILE_H
#define ZRN_SRC_PROFILE_GLOG_LOGFILE_H

#include <zrn/Profile/GLog/LogManager.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace zrn {

/// An append-only file that behaves like a stream with a fail state: opening
/// while open fails and marks it bad; a bad or closed file takes no writes.
/// The first failed write after an open is reported once, to the debugger
/// output and standard error, since the log itself can no longer say it.
class CLogManager::LogFile {
public:
  LogFile();
  ~LogFile();

  /// Opens `utf8Path` for appending. Fails, marking the file bad, when a file
  /// is already open or the path cannot be opened; a success clears the mark.
  bool Open(std::string const& utf8Path);
  /// Closes the file, if open; a failed close marks it bad.
  void Close();

  bool IsOpen() const { return m_pFile != nullptr; }
  bool IsWritable() const { return m_pFile != nullptr && m_bGood; }

  /// Adds text to the buffer; a full buffer goes to disk first.
  void Write(std::string_view text);
  /// Sends the buffer to disk; a short write marks the file bad.
  void Flush();

private:
  // Marks the file bad and broken after a failed write or close, reporting
  // it unless it was broken already. `error` is the errno of the failure.
  void Fail(int error);
  // Writes all of `text`; false (and the file bad) on a short write.
  bool WriteThrough(std::string_view text);

  std::FILE* m_pFile = nullptr;
  bool m_bGood = true;
  // A write or close failed: nothing more goes to this file, buffered lines
  // included (a bad file from a second open still takes its buffered lines).
  bool m_bBroken = false;
  std::string m_strBuffer;
  std::string m_strPath;
};

} // namespace zrn

#endif

// A device over a file.
//
// Storing gathers the whole output in memory, in 1 MiB chunks, and writes the
// file in one pass when the device is closed: back-patching only touches
// memory, and until close the file is empty. A device that refused a write
// writes nothing at close, so a failed output leaves an empty file rather
// than a shorter one. Loading reads through the file.
#ifndef ZRN_IO_FILEIOSTREAM_H
#define ZRN_IO_FILEIOSTREAM_H

#include <zrn/IO/IODevice.h>

#include <fstream>
#include <string>
#include <vector>

namespace zrn {

/// A file device. Paths reach the operating system as UTF-8.
///
/// A storing device accepts positions from 0 up to the largest position
/// written so far (seek returns false for any other and does not move), and
/// holds at most 2^31 - 1 bytes. A write that would go past that, or for
/// which no memory can be had, returns false, writes nothing and fails the
/// device for good: every later write is refused, IsGood() is false, close
/// leaves the file empty, and the calling thread's error code is set to
/// err_failed with a message naming the cause. Failures to open or close the
/// file are not reported by the I/O calls; IsGood tells.
class ZRN_API GFileIOStream : public GIODevice {
public:
  /// Opens `path` for output (truncating) when storing, else for input; in
  /// binary mode unless `text` is true.
  GFileIOStream(bool bStoring, std::wstring path, bool text);
  /// Closes the file, writing the gathered output first.
  ~GFileIOStream() override;

  GFileIOStream(GFileIOStream const&) = delete;
  GFileIOStream& operator=(GFileIOStream const&) = delete;

  long long pos() override;
  bool Write(void* data, unsigned int size) override;
  /// Loading: reads through the file and returns the number of bytes read.
  unsigned int Read(void* data, unsigned int size) override;
  bool seek(long long position) override;
  long long RemainingSize() override;

  /// Reads one line of at most 1,999 characters; true when it is not empty.
  /// The rest of a longer line comes with the next call.
  bool ReadLine(std::string& line);
  /// Writes the gathered output to the file, closes it and frees the chunks.
  void close();

  /// False once opening, reading the size, a write, writing the file or
  /// closing it has failed.
  bool IsGood() const override { return !m_bFailed && (m_file.good() || m_file.eof()); }

private:
  static const unsigned int BUF_LIMIT = 0x100000;

  // For tests only: lowers m_nLimit, so that the size limit can be tested
  // without gigabytes of data. Defined by the tests, not by the library.
  friend struct DeviceTestAccess;

  bool AddChunks();
  bool WriteBuffer(void const* data, unsigned int size);
  // Fails the device for good, reports `why` and returns false.
  bool Refuse(std::string const& why);
  void flush();

  std::fstream m_file;
  std::vector<char*> m_vecChunks;
  int m_nHighWater;
  int m_nWritePos;
  long long m_nReadPos;
  long long m_nFileSize;
  // The most bytes a storing device holds.
  long long m_nLimit;
  bool m_bFailed;
};

} // namespace zrn

#endif // ZRN_IO_FILEIOSTREAM_H

// A device that stores nothing and only counts.
#ifndef ZRN_IO_DATASIZESTREAM_H
#define ZRN_IO_DATASIZESTREAM_H

#include <zrn/IO/IODevice.h>

namespace zrn {

/// Counts the bytes written to it: run a serialisation over it to learn its
/// size in advance. Reads touch no memory.
class ZRN_API GDataSizeStream : public GIODevice {
public:
  /// A storing device at 0.
  GDataSizeStream() : GIODevice(true), m_nCount(0) {}
  ~GDataSizeStream() override;

  long long pos() override { return m_nCount; }
  bool Write(void*, unsigned int n) override {
    m_nCount += n;
    return true;
  }
  unsigned int Read(void*, unsigned int n) override {
    m_nCount += n;
    return n;
  }
  bool seek(long long position) override {
    m_nCount = position;
    return true;
  }

private:
  long long m_nCount;
};

} // namespace zrn

#endif // ZRN_IO_DATASIZESTREAM_H

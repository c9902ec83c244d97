// The byte device under every archive.
//
// A device is a byte store with a current position, opened for storing
// (writing) or loading (reading). Archives back-patch sizes by seeking back and
// writing again, so every device accepts writes below its current end.
//
// A device that refuses a write has failed for good: it refuses every later
// write too, so an output is either whole or visibly broken, never a file
// with a hole in it that reads back as valid.
#ifndef ZRN_IO_IODEVICE_H
#define ZRN_IO_IODEVICE_H

#include <zrn/Export.h>

namespace zrn {

/// A positioned byte store. Devices are not locked: one device serves one
/// archive on one thread at a time.
class ZRN_API GIODevice {
public:
  /// A device opened for storing (`bStoring` true) or loading.
  explicit GIODevice(bool bStoring) : storing(bStoring) {}
  GIODevice(GIODevice const&) = default;
  GIODevice& operator=(GIODevice const&) = default;
  virtual ~GIODevice();

  /// Where the next Write or Read starts, in bytes from the start; below the
  /// end after a seek back.
  virtual long long pos() = 0;
  /// Writes `size` bytes at the position and advances it; false when the
  /// device cannot take them (nothing is written then).
  virtual bool Write(void* data, unsigned int size) = 0;
  /// Reads up to `size` bytes at the position; returns the number read.
  virtual unsigned int Read(void* data, unsigned int size) = 0;
  /// Sets the position, measured from the start.
  virtual bool seek(long long position) = 0;

  /// How many bytes a read could still supply from the position, or -1 when
  /// the device cannot tell. Archives use it to refuse lengths that a
  /// corrupt stream claims but cannot hold.
  virtual long long RemainingSize() { return -1; }

  /// False once the device has failed. The library's devices fail when they
  /// refuse a write (past their size limit, outside a caller's buffer, out of
  /// memory), refuse every write after that, and set the calling thread's
  /// error code (err_failed) when they do. A host device that never fails
  /// may keep this default.
  virtual bool IsGood() const { return true; }

  bool IsLoading() const { return !storing; }
  /// Switches the direction and rewinds to position 0.
  void SetOpenMode(bool bStoring) {
    storing = bStoring;
    seek(0);
  }

protected:
  /// True for a device opened for writing.
  bool storing;
};

} // namespace zrn

#endif // ZRN_IO_IODEVICE_H

// The archive over a byte device.
#ifndef ZRN_IO_DBARCHIVEIMPL_H
#define ZRN_IO_DBARCHIVEIMPL_H

#include <zrn/IO/DbArchive.h>
#include <zrn/IO/IODevice.h>
#include <zrn/IO/MemStream.h>

#include <cstddef>
#include <string>
#include <vector>

namespace zrn {

/// GDbArchive over a GIODevice, which it neither owns nor closes.
///
/// Objects and blocks are written in one pass: the block count and every
/// block size are written as placeholders and patched by seeking back when
/// the block or object ends. Blocks of one object follow one another; objects
/// of different keys nest and interleave freely.
///
/// A rollback also forgets the objects that began at or after the rollback
/// position: their versions leave the version stack and, when storing, their
/// records go, so the enclosing object carries on as if they had never begun.
///
/// Writes are checked: once the device refuses a write, the archive sends it
/// nothing more (so the output is a clean prefix, never one with a hole) and
/// IsAllWriteDataOK() turns false.
///
/// Reading external bytes is safe: a length that the device cannot supply
/// any more (a string, wide string or byte array longer than what remains)
/// reads nothing, leaves the target empty (a byte array null with size 0)
/// and allocates nothing; calls with keys that were never begun are ignored;
/// an archive without a device does nothing.
class ZRN_API GDbArchiveImpl : public GDbArchive {
public:
  /// An archive over `device` (rewound to 0), in the device's direction.
  explicit GDbArchiveImpl(GIODevice* device);
  /// An archive without a device; it reads and writes nothing.
  GDbArchiveImpl();
  GDbArchiveImpl(GDbArchiveImpl const& other);
  GDbArchiveImpl& operator=(GDbArchiveImpl const& other);
  ~GDbArchiveImpl() override;

  using GDbArchive::operator<<;

  bool IsLoading() override;

  GDbArchive& operator<<(std::string const& value) override;
  GDbArchive& operator<<(std::wstring const& value) override;
  GDbArchive& operator<<(double value) override;
  GDbArchive& operator<<(unsigned long long value) override;
  GDbArchive& operator<<(long long value) override;
  GDbArchive& operator<<(float value) override;
  GDbArchive& operator<<(unsigned int value) override;
  GDbArchive& operator<<(int value) override;
  GDbArchive& operator<<(unsigned short value) override;
  GDbArchive& operator<<(short value) override;
  GDbArchive& operator<<(unsigned char value) override;
  GDbArchive& operator<<(char value) override;
  GDbArchive& operator<<(bool value) override;

  GDbArchive& operator>>(std::string& value) override;
  GDbArchive& operator>>(std::wstring& value) override;
  GDbArchive& operator>>(double& value) override;
  GDbArchive& operator>>(unsigned long long& value) override;
  GDbArchive& operator>>(long long& value) override;
  GDbArchive& operator>>(float& value) override;
  GDbArchive& operator>>(unsigned int& value) override;
  GDbArchive& operator>>(int& value) override;
  GDbArchive& operator>>(unsigned short& value) override;
  GDbArchive& operator>>(short& value) override;
  GDbArchive& operator>>(unsigned char& value) override;
  GDbArchive& operator>>(char& value) override;
  GDbArchive& operator>>(bool& value) override;

  GDbArchive& WriteBytes(void* data, int size) override;
  GDbArchive& ReadBytes(void*& data, int& size) override;
  GDbArchive& ReadRawData(void* data, int size) override;
  GDbArchive& WriteRawData(void* data, int size) override;

  void SkipObject() override;
  void ReadBlock(unsigned char& tag, unsigned int& size) override;
  void ReadObject(unsigned char& blockCount, unsigned short& version) override;
  void EndReadObject() override;
  void BeginWriteBlock(unsigned char tag, void const* key) override;
  void EndWriteBlock(unsigned char tag, void const* key) override;
  void BeginWriteObject(void const* key, unsigned short version) override;
  void EndWriteObject(void const* key) override;
  void SeekPos(int offset, SEEKFROM from) override;
  bool WriteEmptyObject() override;
  bool ReadEmptyObject() override;
  void RollbackWriteObject(int position) override;
  void RollbackReadObject(int position) override;
  long long DevicePos() override;
  GIODevice* GetDevice() override { return m_pDevice; }
  /// Discards both texts.
  void ErrorMsgBox(std::string caption, std::string text) override;
  long long CreateNewObjectID() override { return ++m_nObjectID; }
  unsigned short GetVersion() override;

  /// True when writing.
  virtual bool IsStoring();
  /// Writes 8 bytes.
  virtual GDbArchive& operator<<(unsigned long value);
  /// Writes 8 bytes.
  virtual GDbArchive& operator<<(long value);
  /// Reads 8 bytes, keeping all 64 bits.
  virtual GDbArchive& operator>>(unsigned long& value);
  /// Reads 8 bytes, keeping all 64 bits.
  virtual GDbArchive& operator>>(long& value);

  /// True while every write has been taken: false once the device refused
  /// one (the archive then writes nothing more) or has failed otherwise.
  bool IsAllWriteDataOK() { return !m_bWriteRefused && (!m_pDevice || m_pDevice->IsGood()); }

private:
  // Where the pieces of one object being written lie.
  struct ObjectPosRecord {
    long long m_nSizePos;
    long long m_nBlockStart;
    long long m_nCountPos;
    unsigned char m_nBlockCount;
  };
  struct KeyedRecord {
    void const* key;
    ObjectPosRecord record;
  };
  // A version on the stack, with where its object began.
  struct OpenVersion {
    unsigned short version;
    long long start;
  };

  // The device primitives. "Memory stream or another device?" is decided in
  // them alone (defined in the source, inline there); every typed operation
  // goes through them.
  void WriteOut(void const* data, unsigned int size);
  // Room for `size` bytes written in place (then Commit), or null: the caller
  // then writes through WriteOut.
  char* Room(unsigned long long size);
  void Commit(unsigned int size);
  unsigned int ReadSome(void* data, unsigned int size);
  // The next `size` bytes, consumed: in the memory buffer, or read into the
  // scratch string; null when fewer remain (nothing is allocated then).
  char const* Take(std::size_t size);
  long long Position();
  // Overwrites the bytes at `position`, below the current end.
  void PatchBytes(long long position, void const* data, unsigned int size);
  void PatchDevice(long long position, void const* data, unsigned int size);

  void WriteToDevice(void const* data, unsigned int size);
  bool ReadPayload(std::string& out, std::size_t size);
  template <class T> GDbArchive& Put(T const& value);
  template <class T> GDbArchive& Get(T& value);
  // Two values in one write: an object's version and count placeholder, a
  // block's tag and size placeholder.
  template <class A, class B> void PutPair(A first, B second);
  template <class T> void Patch(long long position, T const& value);
  // A 32-bit length, then `size` bytes.
  void PutSized(int length, void const* data, unsigned int size);

  // The record of `key`, made the active one; null when `key` has none.
  ObjectPosRecord* SetActiveObject(void const* key) {
    if (m_nActiveRecord >= 0 && m_vecRecords[m_nActiveRecord].key == key)
      return &m_vecRecords[m_nActiveRecord].record;
    return FindRecord(key);
  }
  ObjectPosRecord* FindRecord(void const* key);
  void GetCurPos(long long& position);
  void WriteSize(long long const& position, unsigned int const* size4, unsigned char* size1);
  void InitArchivePosData();
  void Q_ASSERTBlockID(unsigned char, bool) {}
  int ReadLength();
  void PushVersion(unsigned short version, long long start) {
    m_vecVersions.push_back({version, start});
  }
  // Forgets the objects begun at or after `position` and moves there.
  void RewindTo(long long position);

  GIODevice* m_pDevice;
  // The device when it is exactly a GMemStream (no subclass overrides its
  // operations): values then go to its buffer without a virtual call.
  GMemStream* m_pMemory;
  // The objects being written, innermost last: nesting is shallow, so a
  // search from the back beats any map and allocates nothing per object.
  std::vector<KeyedRecord> m_vecRecords;
  std::ptrdiff_t m_nActiveRecord;
  long long m_nObjectID;
  std::vector<OpenVersion> m_vecVersions;
  std::string m_strScratch; // reused for wide-string and unsized reads
  // A write was refused: the device gets no more.
  bool m_bWriteRefused;
};

} // namespace zrn

#endif // ZRN_IO_DBARCHIVEIMPL_H

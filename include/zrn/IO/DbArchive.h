// The serialisation interface: values in and out by `<<` and `>>`, and
// framing of structured data as objects made of tagged, sized blocks.
//
// Stream format (little-endian, no padding, no header):
//   bool, char, unsigned char        1 byte
//   short, unsigned short            2 bytes
//   int, unsigned int, float         4 bytes
//   long long, unsigned long long,
//   long, unsigned long, double      8 bytes
//   string      int32 length n, then n bytes (no terminator)
//   wstring     int32 length n in UTF-16 code units, then 2n bytes
//   byte array  int32 length n, then n bytes
//   object      uint16 version, uint8 block count, then the blocks
//   block       uint8 tag, uint32 payload size, then the payload
// An empty object is the three bytes 01 00 00.
//
// A class stores itself as an object of tagged blocks with GTaggedObject
// (zrn/IO/TaggedObject.h), which frames both directions and rolls a failed
// object back; a reader skips the blocks it does not know:
//
//   bool CPart::Serialize(zrn::GDbArchive& ar) {
//     zrn::GTaggedObject object(ar, typeid(*this));
//     if (!ar.IsLoading())
//       return object.Write(1, [&] {
//         object.Block(kNameBlock, [&] { ar << name; });
//         object.Block(kMassBlock, [&] { ar << mass; });
//       });
//     return object.Read(1, [&](unsigned char tag) {
//       if (tag == kNameBlock) ar >> name;
//       if (tag == kMassBlock) ar >> mass;
//       return tag == kNameBlock || tag == kMassBlock;
//     });
//   }
//
// Over a GMemStream, GDbArchiveImpl writes and reads in memory:
//
//   zrn::GMemStream stream(true, nullptr, 0);   // storing, owned buffer
//   zrn::GDbArchiveImpl out(&stream);
//   out << part;                                // calls part.Serialize(out)
#ifndef ZRN_IO_DBARCHIVE_H
#define ZRN_IO_DBARCHIVE_H

#include <zrn/Export.h>
#include <zrn/Object/DataType.h>

#include <map>
#include <set>
#include <string>

namespace zrn {

class CReferenced;
class GIODevice;

/// An archive: one direction (storing or loading) and the operations that
/// write or read values and objects in that direction. Every `<<`, `>>` and
/// byte operation returns the archive itself, for chaining.
///
/// The archive also keeps three tables for object-graph archiving: the shared
/// objects already written and their numbers, the classes whose property
/// scheme was already written, and per-class maps from stored property ids to
/// the running program's ids. They live as long as the archive.
///
/// An archive is used by one thread at a time.
class ZRN_API GDbArchive {
public:
  /// Where SeekPos measures from.
  enum SEEKFROM {
    SEEKFROM_CURRENT = 0, ///< from the current position
    SEEKFROM_BEGIN = 1,   ///< from the start of the device (any value but 0)
  };

  /// The oldest archive version this library writes.
  static const int sc_BasicVersion = 16;

  GDbArchive();
  GDbArchive(GDbArchive const& other);
  GDbArchive& operator=(GDbArchive const& other);
  virtual ~GDbArchive();

  /// True when reading.
  virtual bool IsLoading() = 0;

  virtual GDbArchive& operator<<(std::string const& value) = 0;
  virtual GDbArchive& operator<<(std::wstring const& value) = 0;
  virtual GDbArchive& operator<<(double value) = 0;
  virtual GDbArchive& operator<<(unsigned long long value) = 0;
  virtual GDbArchive& operator<<(long long value) = 0;
  virtual GDbArchive& operator<<(float value) = 0;
  virtual GDbArchive& operator<<(unsigned int value) = 0;
  virtual GDbArchive& operator<<(int value) = 0;
  virtual GDbArchive& operator<<(unsigned short value) = 0;
  virtual GDbArchive& operator<<(short value) = 0;
  virtual GDbArchive& operator<<(unsigned char value) = 0;
  virtual GDbArchive& operator<<(char value) = 0;
  virtual GDbArchive& operator<<(bool value) = 0;

  /// Reads a string. A stored length below 1 leaves `value` as it was; the
  /// text is cut at its first NUL.
  virtual GDbArchive& operator>>(std::string& value) = 0;
  /// Reads a wide string (surrogate pairs are combined).
  virtual GDbArchive& operator>>(std::wstring& value) = 0;
  virtual GDbArchive& operator>>(double& value) = 0;
  virtual GDbArchive& operator>>(unsigned long long& value) = 0;
  virtual GDbArchive& operator>>(long long& value) = 0;
  virtual GDbArchive& operator>>(float& value) = 0;
  virtual GDbArchive& operator>>(unsigned int& value) = 0;
  virtual GDbArchive& operator>>(int& value) = 0;
  virtual GDbArchive& operator>>(unsigned short& value) = 0;
  virtual GDbArchive& operator>>(short& value) = 0;
  virtual GDbArchive& operator>>(unsigned char& value) = 0;
  virtual GDbArchive& operator>>(char& value) = 0;
  virtual GDbArchive& operator>>(bool& value) = 0;

  /// Writes a 32-bit size, then `size` bytes of `data` when size >= 1.
  virtual GDbArchive& WriteBytes(void* data, int size) = 0;
  /// Reads a byte array into a new block allocated with operator new (the
  /// caller releases it with operator delete); null when the size is below 1.
  virtual GDbArchive& ReadBytes(void*& data, int& size) = 0;
  /// Reads exactly `size` bytes, with no size before them.
  virtual GDbArchive& ReadRawData(void* data, int size) = 0;
  /// Writes `size` bytes, with no size before them.
  virtual GDbArchive& WriteRawData(void* data, int size) = 0;

  /// Reads past one whole object, leaving the version stack as it was.
  virtual void SkipObject() = 0;
  /// Reads a block's tag and payload size.
  virtual void ReadBlock(unsigned char& tag, unsigned int& size) = 0;
  /// Reads an object's version and block count and pushes the version.
  virtual void ReadObject(unsigned char& blockCount, unsigned short& version) = 0;
  /// Pops the version pushed by ReadObject.
  virtual void EndReadObject() = 0;
  /// Begins a block of the object written under `key`.
  virtual void BeginWriteBlock(unsigned char tag, void const* key) = 0;
  /// Ends the current block of `key`'s object and patches its size.
  virtual void EndWriteBlock(unsigned char tag, void const* key) = 0;
  /// Begins an object under `key`, unique among the objects being written.
  virtual void BeginWriteObject(void const* key, unsigned short version) = 0;
  /// Ends `key`'s object and patches its block count.
  virtual void EndWriteObject(void const* key) = 0;
  /// Moves the device by `offset` from the current position or the start.
  virtual void SeekPos(int offset, SEEKFROM from) = 0;
  /// Writes an empty object (version 1, no blocks).
  virtual bool WriteEmptyObject() = 0;
  /// Skips one object.
  virtual bool ReadEmptyObject() = 0;
  /// Replaces the object that began at `position` by an empty object.
  virtual void RollbackWriteObject(int position) = 0;
  /// Skips the object that began at `position`.
  virtual void RollbackReadObject(int position) = 0;
  /// The device's position.
  virtual long long DevicePos() = 0;
  /// The device (not owned).
  virtual GIODevice* GetDevice() = 0;
  /// The reporting hook for serialisation errors: a caption and a text.
  virtual void ErrorMsgBox(std::string caption, std::string text) = 0;
  /// A new key for BeginWriteObject: 1, 2, 3... for the archive's life.
  virtual long long CreateNewObjectID() = 0;
  /// The version of the innermost object being written or read; 0 if none.
  virtual unsigned short GetVersion() = 0;

  /// Writes `text` as a string (rather than letting the pointer become a bool).
  GDbArchive& operator<<(char const* text) { return *this << std::string(text ? text : ""); }
  /// Writes `text` as a wide string.
  GDbArchive& operator<<(wchar_t const* text) { return *this << std::wstring(text ? text : L""); }

  // On Linux `long` and `unsigned long` are 64 bits and are also the types of
  // std::int64_t, std::uint64_t and std::size_t; without these, such values
  // would be ambiguous between the 64-bit and the narrower overloads.
  /// Writes 8 bytes.
  GDbArchive& operator<<(long value) { return *this << static_cast<long long>(value); }
  /// Writes 8 bytes.
  GDbArchive& operator<<(unsigned long value) {
    return *this << static_cast<unsigned long long>(value);
  }
  /// Reads 8 bytes; a short read leaves `value` as it was.
  GDbArchive& operator>>(long& value) {
    auto wide = static_cast<long long>(value);
    *this >> wide;
    value = static_cast<long>(wide);
    return *this;
  }
  /// Reads 8 bytes; a short read leaves `value` as it was.
  GDbArchive& operator>>(unsigned long& value) {
    auto wide = static_cast<unsigned long long>(value);
    *this >> wide;
    value = static_cast<unsigned long>(wide);
    return *this;
  }

  int CurrentVersion() const { return m_nCurrentVersion; }
  void SetCurrentVersion(int version) { m_nCurrentVersion = version; }
  int GeometryVersion() const { return m_nGeometryVersion; }
  void GeometryVersion(int version) { m_nGeometryVersion = version; }
  /// The newest archive version this library knows: 16.
  static int LatestVersion() { return sc_LatestVersion; }

  /// The shared objects already written to this archive, with their numbers.
  std::map<CReferenced*, unsigned long long>& GetArchivedObject() { return m_mapArchivedObject; }
  /// The classes whose property scheme this archive already holds.
  std::set<eGBMDataType>& GetArchivedPropertyScheme() { return m_setArchivedPropertyScheme; }
  /// The stored-to-current property-id map of `type`: created empty when
  /// `create` is true, else null when `type` has none.
  std::map<unsigned short, unsigned short>* GetMapPropertyID(eGBMDataType type, bool create);

private:
  static const int sc_LatestVersion = 16;

  std::map<CReferenced*, unsigned long long> m_mapArchivedObject;
  std::set<eGBMDataType> m_setArchivedPropertyScheme;
  std::map<eGBMDataType, std::map<unsigned short, unsigned short>> m_mapPropertyID;
  int m_nCurrentVersion;
  int m_nGeometryVersion;
};

} // namespace zrn

#endif // ZRN_IO_DBARCHIVE_H

// One archived object of tagged blocks, framed for its writer and its reader:
// begin, each block, end, and a roll-back when anything inside fails.
#ifndef ZRN_IO_TAGGEDOBJECT_H
#define ZRN_IO_TAGGEDOBJECT_H

#include <zrn/Export.h>
#include <zrn/IO/DbArchive.h>

#include <type_traits>
#include <typeinfo>

namespace zrn {

/// The count of serialisation error boxes shown so far: an error is reported
/// through the archive's ErrorMsgBox only while this is below 1, and each box
/// shown increments it. It starts at 0, so only the first error
/// of the process is shown; a host lowers it (say to -9) to allow more.
/// A plain global of the library namespace, not synchronised.
ZRN_API extern int g_nSerializeErrorMsgBoxMaxCount;

/// The framing of one object in an archive, in the archive's direction.
///
/// Storing, Write begins an object under a fresh key, lets the caller write
/// its blocks with Block, and ends it. Loading, Read reads the object's
/// header and hands each block's tag to the caller, who reads the payload of
/// the tags it knows; the others are skipped by their size, a payload read
/// short or long is reported and the reader moved to the block's end, and an
/// object newer than the reader knows is skipped whole.
///
/// When anything throws inside Write or Read, the failure is reported
/// (captions "SAVE_DATA" and "LOAD_DATA", naming the owner's class; see
/// g_nSerializeErrorMsgBoxMaxCount) and the object rolled back: written as
/// an empty object, or skipped, so that the enclosing stream stays usable.
/// The unwinding of a cancelled thread is let through.
///
/// Lives on the stack for one Serialize call; used by one thread.
class ZRN_API GTaggedObject {
public:
  /// Frames the object that begins at the archive's position; `owner` is
  /// the class named in error reports (typically `typeid(*this)`).
  GTaggedObject(GDbArchive& ar, std::type_info const& owner);
  GTaggedObject(GTaggedObject const&) = delete;
  GTaggedObject& operator=(GTaggedObject const&) = delete;

  /// Storing: writes an object of `version` whose blocks `blocks()` writes
  /// with Block. Always true.
  template <class Blocks> bool Write(unsigned short version, Blocks&& blocks) {
    return WriteObject(version, &Call<Blocks>, &blocks);
  }
  /// Inside Write: one block of `tag`, whose payload `payload()` writes.
  template <class Payload> void Block(unsigned char tag, Payload&& payload) {
    m_ar.BeginWriteBlock(tag, m_key);
    payload();
    m_ar.EndWriteBlock(tag, m_key);
  }
  /// Loading: reads an object, calling `read(tag)` for each block; `read`
  /// reads the payload and returns true for a tag it knows, false (reading
  /// nothing) for one it does not. An object whose version is above
  /// `newestKnown` is skipped whole. Always true.
  template <class Reader> bool Read(unsigned short newestKnown, Reader&& read) {
    return ReadObject(newestKnown, &Ask<Reader>, &read);
  }
  /// Inside Read: the stored version of the object.
  unsigned short Version() const { return m_nVersion; }

private:
  using Action = void (*)(void*);
  using TagReader = bool (*)(void*, unsigned char);
  template <class F> static void Call(void* f) { (*static_cast<std::remove_reference_t<F>*>(f))(); }
  template <class F> static bool Ask(void* f, unsigned char tag) {
    return (*static_cast<std::remove_reference_t<F>*>(f))(tag);
  }

  bool WriteObject(unsigned short version, Action blocks, void* context);
  bool ReadObject(unsigned short newestKnown, TagReader read, void* context);
  void WriteFramed(unsigned short version, Action blocks, void* context);
  void ReadFramed(unsigned short newestKnown, TagReader read, void* context);
  void ReadBlock(TagReader read, void* context);
  // Reports the failure (`caption`, at `line`) and rolls the object back.
  void RollBack(char const* caption, int line);

  GDbArchive& m_ar;
  std::type_info const& m_owner;
  long long m_nStart;
  void const* m_key;
  unsigned short m_nVersion;
};

} // namespace zrn

#endif // ZRN_IO_TAGGEDOBJECT_H

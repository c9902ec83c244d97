// An object id paired with an untyped pointer, so that a reference to an
// object can travel wherever an IBase can (selections, variants).
#ifndef ZRN_OBJECT_OBJTAG_H
#define ZRN_OBJECT_OBJTAG_H

#include <zrn/Export.h>
#include <zrn/Object/IBase.h>

namespace zrn {

/// An object id and a pointer to the object, neither interpreted by the tag.
///
/// The pointer is not owned. The tag keeps IBase's type id (GBM_OBJECT) and
/// archives itself as an empty object: a pointer means nothing in another
/// process, so neither field is stored. A plain value; no locking.
class ZRN_API GObjTag : public IBase {
public:
  /// Id 0 and a null pointer.
  GObjTag();
  GObjTag(long long id, void* pointer);
  GObjTag(GObjTag const& other);
  GObjTag const& operator=(GObjTag const& other);

  /// True when both the ids and the pointers are equal.
  bool operator==(GObjTag const& other) const;

  /// Back to id 0 and a null pointer.
  void Init();

  long long GetObjID() const { return m_nObjID; }
  void SetObjID(long long id) { m_nObjID = id; }
  void* GetPointer() const { return m_pPointer; }
  void SetPointer(void* pointer) { m_pPointer = pointer; }

private:
  long long m_nObjID;
  void* m_pPointer;
};

} // namespace zrn

#endif // ZRN_OBJECT_OBJTAG_H

// The root interface of objects that store themselves in an archive.
#ifndef ZRN_OBJECT_IBASE_H
#define ZRN_OBJECT_IBASE_H

#include <zrn/Export.h>
#include <zrn/IO/DbArchive.h>
#include <zrn/Object/DataType.h>

namespace zrn {

/// An archivable object. One Serialize serves both directions: the archive's
/// direction decides whether the object writes or reads.
class ZRN_API IBase {
public:
  IBase() = default;
  IBase(IBase const&) = default;
  IBase& operator=(IBase const&) = default;
  virtual ~IBase();

  /// Writes or reads the object. The default writes an empty object when
  /// storing and skips one when loading; returns true. A class with data
  /// frames it as an object of tagged blocks with GTaggedObject.
  virtual bool Serialize(GDbArchive& ar);
  /// The object's registered data type; GBM_OBJECT unless overridden.
  virtual eGBMDataType GetObjectType();
};

/// Calls `obj.Serialize(ar)`: writes or reads as the archive's direction
/// says, whichever operator is used. The result of Serialize is dropped.
ZRN_API GDbArchive& operator<<(GDbArchive& ar, IBase const& obj);
/// The same as operator<<: the archive's direction decides.
ZRN_API GDbArchive& operator>>(GDbArchive& ar, IBase const& obj);

} // namespace zrn

#endif // ZRN_OBJECT_IBASE_H

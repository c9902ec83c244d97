// A ready-made entity class that carries named properties, for hosts and
// scripts that need entities with data without writing a class of their own.
//
//   auto* note = new zrn::CPropertyEntity;
//   project->AddChild(note);
//   note->Properties().SetProperty(L"height", zrn::CVariant(3.0));
//   note->SetObjectFlag(true, zrn::EGOBJECT_FLAG_MODIFIED);   // saved next time
#ifndef ZRN_STORE_PROPERTYENTITY_H
#define ZRN_STORE_PROPERTYENTITY_H

#include <zrn/Object/Entity.h>
#include <zrn/Object/IBase.h>
#include <zrn/Property/PropertyCollection.h>
#include <zrn/Store/StoreExport.h>

namespace zrn {

/// The impl object of a CPropertyEntity: one property collection, archived as
/// an object of version 1 whose block 1 is the collection's stream.
///
/// The collection's scheme is that of the class type kObjectType, shared by
/// every property entity of the process. Used by one thread at a time.
class ZRN_STORE_API CPropertyEntityImpl : public IBaseEntityImpl, public IBase {
public:
  /// The class type that selects the property scheme.
  static constexpr eGBMDataType kObjectType = static_cast<eGBMDataType>(1501);

  CPropertyEntityImpl();

  CPropertyCollection& Properties() { return m_properties; }

  /// Writes or reads the collection as the archive's direction says.
  bool Serialize(GDbArchive& ar) override;
  eGBMDataType GetObjectType() override { return kObjectType; }

private:
  CPropertyCollection m_properties;
};

/// An entity whose data is a property collection. The store registers it
/// from the start under the library's type id kTypeId.
class ZRN_STORE_API CPropertyEntity : public IBaseEntity {
public:
  /// The type id the store keeps for this class.
  static constexpr int kTypeId = 2;

  IBaseEntityImpl* CreateBaseEntityImpl() override { return new CPropertyEntityImpl; }
  /// The properties, read from the store first when they are swapped out.
  /// Mark the entity modified after a change, so that the next save writes
  /// it.
  CPropertyCollection& Properties();
};

} // namespace zrn

#endif // ZRN_STORE_PROPERTYENTITY_H

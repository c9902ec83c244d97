// The registry of entity classes that a store can create when it loads a
// tree: each class a host stores gets a type id, written into its rows.
#ifndef ZRN_STORE_ENTITYTYPEREGISTRY_H
#define ZRN_STORE_ENTITYTYPEREGISTRY_H

#include <zrn/Store/StoreExport.h>

#include <typeindex>
#include <typeinfo>
#include <unordered_map>

namespace zrn {

class IBaseEntity;

/// Maps entity classes to type ids and back.
///
/// Ids 0 to 99 belong to the library: 0 is a plain IBaseEntity, 1 a plain
/// IBaseProject and 2 a CPropertyEntity, all registered from the start. Hosts register their own
/// classes with ids of 100 or more, before saving or loading, with the same
/// id in every version of the host (the id is what the store keeps). The
/// exact class counts: a class derived from a registered one needs its own
/// id. Registration happens before use; lookups may then run on any thread.
///
///   registry.Register<CBeam>(100);
///   registry.Register<CPlant>(101);   // CPlant derives from IBaseProject
class ZRN_STORE_API CEntityTypeRegistry {
public:
  /// Creates a new entity of one class.
  using Factory = IBaseEntity* (*)();
  /// The first id hosts may use.
  static constexpr int kFirstHostType = 100;

  /// Only the library's own types.
  CEntityTypeRegistry();

  /// Registers `T` (default-constructible, derived from IBaseEntity) as
  /// `typeId`; false when the id is below kFirstHostType or either the id or
  /// the class is registered already.
  template <class T> bool Register(int typeId) {
    return Register(typeId, typeid(T), [] { return static_cast<IBaseEntity*>(new T); });
  }
  /// Registers the class `type`, created by `factory`, as `typeId`.
  bool Register(int typeId, std::type_info const& type, Factory factory);

  /// The id of `entity`'s exact class; -1 when the class is not registered.
  int TypeOf(IBaseEntity const& entity) const;
  /// A new entity of the class registered as `typeId`; null for an unknown
  /// id.
  IBaseEntity* Create(int typeId) const;

private:
  void Add(int typeId, std::type_info const& type, Factory factory);

  std::unordered_map<std::type_index, int> m_idOfType;
  std::unordered_map<int, Factory> m_factoryOfId;
};

} // namespace zrn

#endif // ZRN_STORE_ENTITYTYPEREGISTRY_H

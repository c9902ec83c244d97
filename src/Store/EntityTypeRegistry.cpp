#include <zrn/Object/Entity.h>
#include <zrn/Object/Project.h>
#include <zrn/Store/EntityTypeRegistry.h>
#include <zrn/Store/PropertyEntity.h>

namespace zrn {

CEntityTypeRegistry::CEntityTypeRegistry() {
  Add(0, typeid(IBaseEntity), [] { return new IBaseEntity; });
  Add(1, typeid(IBaseProject), [] { return static_cast<IBaseEntity*>(new IBaseProject); });
  Add(CPropertyEntity::kTypeId, typeid(CPropertyEntity),
      [] { return static_cast<IBaseEntity*>(new CPropertyEntity); });
}

bool CEntityTypeRegistry::Register(int typeId, std::type_info const& type, Factory factory) {
  if (typeId < kFirstHostType || !factory || m_factoryOfId.count(typeId) ||
      m_idOfType.count(std::type_index(type)))
    return false;
  Add(typeId, type, factory);
  return true;
}

int CEntityTypeRegistry::TypeOf(IBaseEntity const& entity) const {
  auto found = m_idOfType.find(std::type_index(typeid(entity)));
  return found == m_idOfType.end() ? -1 : found->second;
}

IBaseEntity* CEntityTypeRegistry::Create(int typeId) const {
  auto found = m_factoryOfId.find(typeId);
  return found == m_factoryOfId.end() ? nullptr : found->second();
}

void CEntityTypeRegistry::Add(int typeId, std::type_info const& type, Factory factory) {
  m_idOfType.emplace(std::type_index(type), typeId);
  m_factoryOfId.emplace(typeId, factory);
}

} // namespace zrn

#include <zrn/IO/TaggedObject.h>
#include <zrn/Store/PropertyEntity.h>

#include <typeinfo>

namespace zrn {

namespace {
constexpr unsigned char kPropertiesBlock = 1;
}

CPropertyEntityImpl::CPropertyEntityImpl() : m_properties(this) {}

bool CPropertyEntityImpl::Serialize(GDbArchive& ar) {
  GTaggedObject object(ar, typeid(*this));
  if (!ar.IsLoading())
    return object.Write(
        1, [&] { object.Block(kPropertiesBlock, [&] { m_properties.Serialize(ar); }); });
  return object.Read(1, [&](unsigned char tag) {
    if (tag != kPropertiesBlock)
      return false; // a newer writer's block: skipped by its size
    m_properties.Serialize(ar);
    return true;
  });
}

CPropertyCollection& CPropertyEntity::Properties() {
  // CreateBaseEntityImpl gives every property entity this impl class.
  return static_cast<CPropertyEntityImpl*>(GetBaseEntityImpl(true))->Properties();
}

} // namespace zrn

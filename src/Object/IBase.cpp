#include <zrn/Object/IBase.h>

namespace zrn {

IBase::~IBase() = default;

bool IBase::Serialize(GDbArchive& ar) {
  if (ar.IsLoading())
    ar.ReadEmptyObject();
  else
    ar.WriteEmptyObject();
  return true;
}

eGBMDataType IBase::GetObjectType() { return GBM_OBJECT; }

GDbArchive& operator<<(GDbArchive& ar, IBase const& obj) {
  const_cast<IBase&>(obj).Serialize(ar);
  return ar;
}

GDbArchive& operator>>(GDbArchive& ar, IBase const& obj) {
  const_cast<IBase&>(obj).Serialize(ar);
  return ar;
}

} // namespace zrn

#include <zrn/IO/DbArchive.h>
#include <zrn/Object/IBase.h>
#include <zrn/Object/ObjectFactory.h>
#include <zrn/Object/Referenced.h>
#include <zrn/Property/Variant.h>

#include "Property/PlainValue.h"

#include <cassert>
#include <cstring>
#include <typeinfo>
#include <utility>

namespace zrn {

namespace {

sClassFunctionPtr const* RecordOf(eGBMDataType type) {
  return GetBaseObjectFactory().GetFunctionPtr(type);
}

template <class T> eGBMDataType TypeOfClass() {
  return CVariant::GetDataTypeFromClassName(typeid(T).name());
}

} // namespace

VariantStru::VariantStru() : m_eType(GBM_NONE), m_bEmpty(true), m_bRefPtr(false), m_bObject(false) {
  m_value.ullVal = 0;
}

void VariantStru::Init() {
  m_value.ullVal = 0;
  m_eType = GBM_NONE;
  m_bEmpty = true;
  m_bRefPtr = false;
}

// --- Life --------------------------------------------------------------------

CVariant::CVariant() = default;

CVariant::CVariant(CVariant const& other) : CVariant() { *this = other; }

CVariant::~CVariant() { Destruct(false); }

void CVariant::Construct() { m_data.Init(); }

void CVariant::Destruct(bool reset) {
  // Taken out of the variant before it is released, so that an object whose
  // destruction comes back to this variant finds it already reset.
  const VariantStru held = m_data;
  if (reset)
    m_data = VariantStru();
  if (held.m_bEmpty)
    return;
  if (held.m_bRefPtr) {
    if (held.m_value.pVal)
      static_cast<CReferenced*>(held.m_value.pVal)->Unref();
  } else if (held.m_bObject) {
    sClassFunctionPtr const* record = RecordOf(held.m_eType);
    if (record && record->m_pfnDestroyObject)
      record->m_pfnDestroyObject(held.m_value.pVal, held.m_eType);
  }
}

template <class T> void CVariant::SetPlain(T value, eGBMDataType type) {
  Destruct(true);
  std::memcpy(&m_data.m_value, &value, sizeof value);
  m_data.m_eType = type;
  m_data.m_bEmpty = false;
}

void CVariant::SetValue2(void const* src, eGBMDataType type, bool copy) {
  // Copied before the old value is released: `src` may live inside it.
  void* object = const_cast<void*>(src);
  if (copy) {
    sClassFunctionPtr const* record = RecordOf(type);
    object = record && record->m_pfnCopyObject ? record->m_pfnCopyObject(src) : nullptr;
  }
  Destruct(true);
  m_data.m_eType = type;
  m_data.m_value.pVal = object;
  m_data.m_bEmpty = false;
  m_data.m_bObject = true;
}

CVariant& CVariant::operator=(CVariant const& other) {
  if (this == &other)
    return *this;
  CVariant copy;
  copy.m_data = other.m_data;
  if (other.m_data.m_bRefPtr) {
    copy.m_data.m_value.pVal = nullptr;
    copy.SetValueRefPtr(static_cast<CReferenced*>(other.m_data.m_value.pVal));
  } else if (other.m_data.m_bObject) {
    copy.m_data.m_value.pVal = nullptr;
    copy.SetValue2(other.m_data.m_value.pVal, other.m_data.m_eType, true);
  }
  std::swap(m_data, copy.m_data); // `copy` releases what this variant held
  return *this;
}

// --- Plain values ----------------------------------------------------------------

CVariant::CVariant(bool value) { SetPlain(value, GBM_BOOL); }
CVariant::CVariant(char value) { SetPlain(value, GBM_CHAR); }
CVariant::CVariant(unsigned char value) { SetPlain(value, GBM_UCHAR); }
CVariant::CVariant(short value) { SetPlain(value, GBM_SHORT); }
CVariant::CVariant(unsigned short value) { SetPlain(value, GBM_USHORT); }
CVariant::CVariant(int value) { SetPlain(value, GBM_INT); }
CVariant::CVariant(unsigned int value) { SetPlain(value, GBM_UINT); }
CVariant::CVariant(float value) { SetPlain(value, GBM_FLOAT); }
CVariant::CVariant(long long value) { SetPlain(value, GBM_INT64); }
CVariant::CVariant(unsigned long long value) { SetPlain(value, GBM_UINT64); }
CVariant::CVariant(long value) { SetPlain(static_cast<long long>(value), GBM_INT64); }
CVariant::CVariant(unsigned long value) {
  SetPlain(static_cast<unsigned long long>(value), GBM_UINT64);
}
CVariant::CVariant(double value) { SetPlain(value, GBM_DOUBLE); }

CVariant& CVariant::operator=(bool value) { return SetPlain(value, GBM_BOOL), *this; }
CVariant& CVariant::operator=(char value) { return SetPlain(value, GBM_CHAR), *this; }
CVariant& CVariant::operator=(unsigned char value) { return SetPlain(value, GBM_UCHAR), *this; }
CVariant& CVariant::operator=(short value) { return SetPlain(value, GBM_SHORT), *this; }
CVariant& CVariant::operator=(unsigned short value) { return SetPlain(value, GBM_USHORT), *this; }
CVariant& CVariant::operator=(int value) { return SetPlain(value, GBM_INT), *this; }
CVariant& CVariant::operator=(unsigned int value) { return SetPlain(value, GBM_UINT), *this; }
CVariant& CVariant::operator=(float value) { return SetPlain(value, GBM_FLOAT), *this; }
CVariant& CVariant::operator=(long long value) { return SetPlain(value, GBM_INT64), *this; }
CVariant& CVariant::operator=(unsigned long long value) {
  return SetPlain(value, GBM_UINT64), *this;
}
CVariant& CVariant::operator=(long value) { return *this = static_cast<long long>(value); }
CVariant& CVariant::operator=(unsigned long value) {
  return *this = static_cast<unsigned long long>(value);
}
CVariant& CVariant::operator=(double value) { return SetPlain(value, GBM_DOUBLE), *this; }

// --- Owned objects ---------------------------------------------------------------

CVariant::CVariant(std::string const& value) { *this = value; }
CVariant::CVariant(std::wstring const& value) { *this = value; }
CVariant::CVariant(char const* value) {
  assert(value && "CVariant: null text");
  *this = value;
}
CVariant::CVariant(wchar_t const* value) {
  assert(value && "CVariant: null wide text");
  *this = value;
}
CVariant::CVariant(CColor const& value) { *this = value; }

CVariant& CVariant::operator=(std::string const& value) {
  SetValue2(&value, TypeOfClass<std::string>(), true);
  return *this;
}

CVariant& CVariant::operator=(std::wstring const& value) {
  SetValue2(&value, TypeOfClass<std::wstring>(), true);
  return *this;
}

CVariant& CVariant::operator=(char const* value) { return *this = std::string(value); }

CVariant& CVariant::operator=(wchar_t const* value) { return *this = std::wstring(value); }

CVariant& CVariant::operator=(FileAddress const& value) {
  SetValue2(&value, TypeOfClass<FileAddress>(), true);
  return *this;
}

CVariant& CVariant::operator=(CColor const& value) {
  const unsigned int integer = value.ToInteger();
  SetValue2(&integer, TypeOfClass<unsigned int>(), true);
  return *this;
}

CVariant& CVariant::operator=(CBox3<double> const& box) {
  const LocalBox local{{box.min.x, box.min.y, box.min.z, box.max.x, box.max.y, box.max.z}};
  SetValue2(&local, TypeOfClass<LocalBox>(), true);
  return *this;
}

CVariant& CVariant::operator=(CCoord3<double> const& coord) {
  LocalCoord3d local{};
  double* out = local.values;
  for (CVec3<double> const* v : {&coord.origin, &coord.xAxis, &coord.yAxis, &coord.zAxis}) {
    *out++ = v->x;
    *out++ = v->y;
    *out++ = v->z;
  }
  SetValue2(&local, TypeOfClass<LocalCoord3d>(), true);
  return *this;
}

CVariant& CVariant::operator=(CVec2<double> const& vec) {
  const LocalVec2d local{{vec.x, vec.y}};
  SetValue2(&local, TypeOfClass<LocalVec2d>(), true);
  return *this;
}

CVariant& CVariant::operator=(CVec3<double> const& vec) {
  const LocalVec3d local{{vec.x, vec.y, vec.z}};
  SetValue2(&local, TypeOfClass<LocalVec3d>(), true);
  return *this;
}

template <> CColor CVariant::GetValue<CColor>() const {
  CColor color;
  if (m_data.m_eType == GBM_COLOR && m_data.m_bObject && m_data.m_value.pVal)
    color.FromInteger(*static_cast<unsigned int const*>(m_data.m_value.pVal));
  return color;
}

// --- Identifiers and references ----------------------------------------------------

void CVariant::SetObjectID(unsigned long long id) { SetPlain(id, GBM_OBJECT_ID); }

unsigned long long CVariant::toObjectID(bool* ok) const {
  const bool isId = m_data.m_eType == GBM_OBJECT_ID;
  if (ok)
    *ok = isId;
  return isId ? m_data.m_value.ullVal : 0;
}

void CVariant::SetValueRefPtr(CReferenced* p) {
  if (p)
    p->Ref(); // first: `p` may be the object this variant is about to release
  Destruct(true);
  if (!p)
    return;
  const eGBMDataType type = GetDataTypeFromClassName(typeid(*p).name());
  m_data.m_eType = type == GBM_NONE ? GBM_REF_OBJECT : type;
  m_data.m_value.pVal = p;
  m_data.m_bRefPtr = true;
  m_data.m_bObject = true;
  m_data.m_bEmpty = false;
}

CReferenced* CVariant::GetValueRefPtr() const {
  return m_data.m_bRefPtr ? static_cast<CReferenced*>(m_data.m_value.pVal) : nullptr;
}

void CVariant::SetDBValueRefPtr(CReferenced* p, eGBMDataType type) {
  m_data.m_value.pVal = p;
  m_data.m_eType = type;
  m_data.m_bEmpty = false;
}

CReferenced* CVariant::GetDBValueRefPtr() const {
  return static_cast<CReferenced*>(m_data.m_value.pVal);
}

eGBMDataType CVariant::GetDataTypeFromClassName(char const* name) {
  return name ? GetBaseObjectFactory().GetDataTypeByClassName(name) : GBM_NONE;
}

// --- Archiving -----------------------------------------------------------------------

bool CVariant::Serialize(GDbArchive& ar) {
  if (ar.IsLoading()) {
    Destruct(true);
    int type = GBM_NONE;
    ar >> type;
    m_data.m_eType = static_cast<eGBMDataType>(type);
    if (type >= GBM_REF_OBJECT)
      SerializeCutomObject(ar);
    else
      ReadPlain(ar);
    m_data.m_bEmpty = false;
    return true;
  }
  ar << static_cast<int>(m_data.m_eType);
  if (m_data.m_eType >= GBM_REF_OBJECT) {
    SerializeCutomObject(ar);
    return true;
  }
  detail::VisitValue<detail::ObjectIds::Plain>(
      m_data, [&ar](auto& value) { ar << value; }, [] {});
  return true;
}

void CVariant::ReadPlain(GDbArchive& ar) {
  detail::VisitValue<detail::ObjectIds::Plain>(
      m_data, [&ar](auto& value) { ar >> value; }, [] {});
}

bool CVariant::SerializeCutomObject(GDbArchive& ar) {
  if (ar.IsLoading())
    ReadCustomObject(ar);
  else
    WriteCustomObject(ar);
  return true;
}

void CVariant::WriteCustomObject(GDbArchive& ar) {
  void* const object = m_data.m_value.pVal;
  sClassFunctionPtr const* record = RecordOf(m_data.m_eType);
  const bool byFactory = record && record->m_pfnWriteObject && object;
  IBase* const base = !byFactory && m_data.m_bRefPtr && object
                          ? dynamic_cast<IBase*>(static_cast<CReferenced*>(object))
                          : nullptr;
  const bool hasPayload = byFactory || base;
  ar << hasPayload << m_data.m_bRefPtr;
  if (!hasPayload)
    return;
  ar << byFactory;
  if (byFactory)
    record->m_pfnWriteObject(ar, object);
  else if (!base->Serialize(ar))
    ar.WriteEmptyObject();
}

namespace {

// A new default counted object of `type`, from either creator.
CReferenced* CreateCounted(eGBMDataType type) {
  GBaseObjectFactory& factory = GetBaseObjectFactory();
  if (CReferenced* counted = factory.CreateRefObject(type))
    return counted;
  IBase* const base = factory.CreateBaseObject(type);
  auto* const counted = dynamic_cast<CReferenced*>(base);
  if (!counted)
    delete base;
  return counted;
}

} // namespace

void CVariant::ReadCustomObject(GDbArchive& ar) {
  const eGBMDataType type = m_data.m_eType;
  bool hasPayload = false;
  bool refPtr = false;
  ar >> hasPayload >> refPtr;
  CReferenced* const counted = refPtr ? CreateCounted(type) : nullptr;
  if (counted) {
    SetValueRefPtr(counted);
  } else {
    m_data.m_value.pVal = GetBaseObjectFactory().CreateVoidObject(type);
    m_data.m_bRefPtr = false;
    m_data.m_bObject = true;
    m_data.m_bEmpty = false;
  }
  if (!hasPayload)
    return;
  bool byFactory = false;
  ar >> byFactory;
  void* const object = m_data.m_value.pVal;
  if (!byFactory) {
    IBase* const base =
        m_data.m_bRefPtr ? dynamic_cast<IBase*>(static_cast<CReferenced*>(object)) : nullptr;
    if (base)
      base->Serialize(ar);
    else
      ar.SkipObject();
    return;
  }
  sClassFunctionPtr const* record = RecordOf(m_data.m_eType);
  if (record && record->m_pfnReadObject && object)
    record->m_pfnReadObject(ar, object);
  else
    ar.SkipObject();
}

} // namespace zrn

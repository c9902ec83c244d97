// The library's own data types, registered while the library loads.
#include <zrn/IO/DbArchive.h>
#include <zrn/IO/MemStream.h>
#include <zrn/Object/ObjectFactory.h>

#include <string>
#include <typeinfo>

namespace zrn {
namespace {

template <class T> void* CopyValue(void const* source) {
  return source ? new T(*static_cast<T const*>(source)) : new T();
}

template <class T> void DestroyValue(void* object, eGBMDataType) { delete static_cast<T*>(object); }

template <class T> void WriteValue(GDbArchive& ar, void const* object) {
  ar << *static_cast<T const*>(object);
}

template <class T> void ReadValue(GDbArchive& ar, void* object) { ar >> *static_cast<T*>(object); }

// A value type: copy and destroy, with archive functions when it has them.
template <class T, bool kArchived> sClassFunctionPtr ValueRecord() {
  sClassFunctionPtr record{};
  record.m_pfnCopyObject = &CopyValue<T>;
  record.m_pfnDestroyObject = &DestroyValue<T>;
  if constexpr (kArchived) {
    record.m_pfnWriteObject = &WriteValue<T>;
    record.m_pfnReadObject = &ReadValue<T>;
  }
  record.m_strClassName = typeid(T).name();
  return record;
}

CReferenced* CreateMemStream() { return new GMemStream(); }

sClassFunctionPtr MemStreamReferenceRecord() {
  sClassFunctionPtr record{};
  record.m_strClassName = typeid(GMemStream).name();
  record.m_pfnCreateRefObject = &CreateMemStream;
  return record;
}

const GBaseObjectFactoryHelper s_registrations[] = {
    {GBM_STRING, ValueRecord<std::string, true>()},
    {GBM_WSTRING, ValueRecord<std::wstring, true>()},
    {GBM_COLOR, ValueRecord<unsigned int, true>()},
    {GBM_LOCAL_BOX, ValueRecord<LocalBox, false>()},
    {GBM_LOCAL_VEC2D, ValueRecord<LocalVec2d, false>()},
    {GBM_LOCAL_VEC3D, ValueRecord<LocalVec3d, false>()},
    {GBM_FILE_ADDRESS, ValueRecord<FileAddress, false>()},
    {GBM_LOCAL_COORD3D, ValueRecord<LocalCoord3d, false>()},
    // A memory stream's copy and destroy functions and its reference creator
    // are registered in two steps, merged by the factory.
    {GBM_MEM_STREAM, ValueRecord<GMemStream, false>()},
    {GBM_MEM_STREAM, MemStreamReferenceRecord()},
};

} // namespace
} // namespace zrn

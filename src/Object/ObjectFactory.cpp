#include <zrn/Object/ObjectFactory.h>

#include <cassert>
#include <string_view>

namespace zrn {

namespace {

template <class Function> void MergeFunction(Function& stored, Function given) {
  if (given)
    stored = given;
}

} // namespace

void GBaseObjectFactory::RegitsterObjectPointers(eGBMDataType type, sClassFunctionPtr record) {
  m_mapClassNames[record.m_strClassName] = type;
  const auto [found, inserted] = m_mapRecords.try_emplace(type, record);
  if (inserted)
    return;
  sClassFunctionPtr& stored = found->second;
  MergeFunction(stored.m_pfnCreateBaseObject, record.m_pfnCreateBaseObject);
  MergeFunction(stored.m_pfnCopyObject, record.m_pfnCopyObject);
  MergeFunction(stored.m_pfnDestroyObject, record.m_pfnDestroyObject);
  MergeFunction(stored.m_pfnWriteObject, record.m_pfnWriteObject);
  MergeFunction(stored.m_pfnReadObject, record.m_pfnReadObject);
  MergeFunction(stored.m_pfnCreateRefObject, record.m_pfnCreateRefObject);
}

sClassFunctionPtr* GBaseObjectFactory::GetFunctionPtr(eGBMDataType type) {
  const auto found = m_mapRecords.find(type);
  return found == m_mapRecords.end() ? nullptr : &found->second;
}

IBase* GBaseObjectFactory::CreateBaseObject(eGBMDataType type) {
  sClassFunctionPtr const* record = GetFunctionPtr(type);
  return record && record->m_pfnCreateBaseObject ? record->m_pfnCreateBaseObject() : nullptr;
}

CReferenced* GBaseObjectFactory::CreateRefObject(eGBMDataType type) {
  sClassFunctionPtr const* record = GetFunctionPtr(type);
  return record && record->m_pfnCreateRefObject ? record->m_pfnCreateRefObject() : nullptr;
}

void* GBaseObjectFactory::CreateVoidObject(eGBMDataType type) {
  sClassFunctionPtr const* record = GetFunctionPtr(type);
  return record && record->m_pfnCopyObject ? record->m_pfnCopyObject(nullptr) : nullptr;
}

eGBMDataType GBaseObjectFactory::GetDataTypeByClassName(std::string const& name) {
  const auto found = m_mapClassNames.find(name);
  return found == m_mapClassNames.end() ? GBM_NONE : found->second;
}

eGBMDataType GBaseObjectFactory::GetDataTypeByClassName(char const* name) {
  assert(name && "GetDataTypeByClassName: null class name");
  // Heterogeneous lookup: the long mangled names need no string of their own.
  const auto found = m_mapClassNames.find(std::string_view(name));
  return found == m_mapClassNames.end() ? GBM_NONE : found->second;
}

GBaseObjectFactory& GetBaseObjectFactory() {
  static GBaseObjectFactory factory;
  return factory;
}

GBaseObjectFactoryHelper::GBaseObjectFactoryHelper(eGBMDataType type, sClassFunctionPtr record) {
  GetBaseObjectFactory().RegitsterObjectPointers(type, std::move(record));
}

} // namespace zrn

// The object factory: per data type, the functions that create, copy,
// destroy, write and read values of that type.
//
// Types are registered by static GBaseObjectFactoryHelper objects while the
// library and host modules load:
//
//   static zrn::GBaseObjectFactoryHelper s_register(
//       kMyType, zrn::sClassFunctionPtr{&CreateMine, nullptr, nullptr, nullptr,
//                                        nullptr, typeid(CMine).name(), nullptr});
#ifndef ZRN_OBJECT_OBJECTFACTORY_H
#define ZRN_OBJECT_OBJECTFACTORY_H

#include <zrn/Export.h>
#include <zrn/Object/DataType.h>

#include <map>
#include <string>

namespace zrn {

class CReferenced;
class GDbArchive;
class IBase;

/// The factory record of one type. Any function may be null.
struct ZRN_API sClassFunctionPtr {
  /// Creates a default object as an IBase.
  IBase* (*m_pfnCreateBaseObject)();
  /// Returns a new copy of `*source`, or a new default object for null.
  void* (*m_pfnCopyObject)(void const* source);
  /// Frees an object made by the copy function; null is ignored.
  void (*m_pfnDestroyObject)(void* object, eGBMDataType type);
  /// Writes the object to the archive.
  void (*m_pfnWriteObject)(GDbArchive& ar, void const* object);
  /// Reads into an existing object.
  void (*m_pfnReadObject)(GDbArchive& ar, void* object);
  /// The class's run-time type name (`typeid(T).name()`).
  std::string m_strClassName;
  /// Creates a default object as its CReferenced part.
  CReferenced* (*m_pfnCreateRefObject)();
};

/// Maps data types to their records and class names to data types.
///
/// Registrations happen while modules load, before other threads look types
/// up; afterwards the factory is only read, from any number of threads.
class ZRN_API GBaseObjectFactory {
public:
  /// Registers `record` for `type`: the class name maps to `type` (replacing
  /// an earlier type of that name); a first record is stored as given, a later
  /// one merges in, each non-null function replacing the stored one.
  void RegitsterObjectPointers(eGBMDataType type, sClassFunctionPtr record);

  /// The record of `type`, or null; valid while the factory lives.
  sClassFunctionPtr* GetFunctionPtr(eGBMDataType type);
  /// A new default object as an IBase, or null. The caller deletes it.
  IBase* CreateBaseObject(eGBMDataType type);
  /// A new default object with count 0, or null.
  CReferenced* CreateRefObject(eGBMDataType type);
  /// A new default value from the copy function, or null. The caller frees
  /// it with the record's destroy function.
  void* CreateVoidObject(eGBMDataType type);
  /// The type registered under exactly `name`, or GBM_NONE.
  eGBMDataType GetDataTypeByClassName(std::string const& name);
  /// The same lookup without building a string. `name` must not be null
  /// (asserted in Debug builds).
  eGBMDataType GetDataTypeByClassName(char const* name);

private:
  std::map<eGBMDataType, sClassFunctionPtr> m_mapRecords;
  std::map<std::string, eGBMDataType, std::less<>> m_mapClassNames;
};

/// The process's one factory, created on the first call.
ZRN_API GBaseObjectFactory& GetBaseObjectFactory();

/// Registers a type from its constructor; used as a static object.
class ZRN_API GBaseObjectFactoryHelper {
public:
  GBaseObjectFactoryHelper(eGBMDataType type, sClassFunctionPtr record);
};

} // namespace zrn

#endif // ZRN_OBJECT_OBJECTFACTORY_H

#include <zrn/Object/Project.h>

#include <zrn/IO/DBDevice.h>
#include <zrn/IO/DataIOFacade.h>
#include <zrn/IO/DbArchive.h>
#include <zrn/Property/Variant.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

// The compiler's ABI header (not an operating-system one) demangles type
// names and names the unwinding that thread cancellation uses.
#if __has_include(<cxxabi.h>)
#include <cxxabi.h>
#define ZRN_HAS_CXXABI 1
#endif

namespace zrn {

int g_nSerializeErrorMsgBoxMaxCount = 0;

namespace {

// Error texts name this place, as hosts' logs and tests know it.
std::string Where(int line) { return "\nfile: Object\\IBase:" + std::to_string(line); }

std::string ClassName(std::type_info const& type) {
#ifdef ZRN_HAS_CXXABI
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  if (status == 0 && name)
    return name.get();
#endif
  return type.name();
}

void ReportSerializeError(GDbArchive& ar, std::string const& caption, std::string const& text) {
  if (g_nSerializeErrorMsgBoxMaxCount >= 1)
    return;
  ar.ErrorMsgBox(caption, text);
  ++g_nSerializeErrorMsgBoxMaxCount;
}

// Sets one of the device's flags and opens an access batch for the life of
// the scope, so that a throwing facade leaves the device usable.
class DeviceAccess {
public:
  DeviceAccess(GDBDevice& device, bool& flag) : m_device(device), m_flag(flag) {
    m_flag = true;
    m_device.BeginAccess();
  }
  DeviceAccess(DeviceAccess const&) = delete;
  DeviceAccess& operator=(DeviceAccess const&) = delete;
  ~DeviceAccess() {
    m_device.EndAccess();
    m_flag = false;
  }

private:
  GDBDevice& m_device;
  bool& m_flag;
};

} // namespace

IBaseProject::IBaseProject() : m_pDBDevice(nullptr), m_nUniqueID(1) {}

IBaseProject::~IBaseProject() {
  // First, so that tearing the tree down below records nothing.
  delete m_pDBDevice;
  m_pDBDevice = nullptr;
}

eGBMDataType IBaseProject::GetObjectType() { return GBM_PROJECT; }

long long IBaseProject::GetUniqueID() { return ++m_nUniqueID; }

bool IBaseProject::Serialize(GDbArchive& ar) {
  const long long start = ar.DevicePos();
  if (ar.IsLoading()) {
    try {
      unsigned char blockCount = 0;
      unsigned short version = 0;
      ar.ReadObject(blockCount, version);
      if (version >= 2) {
        // Written by a newer library: skip it whole and drop its version.
        ar.SeekPos(static_cast<int>(start), GDbArchive::SEEKFROM_BEGIN);
        ar.SkipObject();
        ar.EndReadObject();
        return true;
      }
      for (unsigned i = 0; i < blockCount; ++i) {
        unsigned char tag = 0;
        unsigned int size = 0;
        ar.ReadBlock(tag, size);
        const long long blockStart = ar.DevicePos();
        if (tag != 1) {
          ar.SeekPos(static_cast<int>(size), GDbArchive::SEEKFROM_CURRENT);
          continue;
        }
        long long counter = m_nUniqueID;
        ar >> counter;
        m_nUniqueID = counter;
        if (ar.DevicePos() - blockStart != static_cast<long long>(size)) {
          ReportSerializeError(ar, "load data", "read block error :" + Where(365));
          ar.SeekPos(static_cast<int>(blockStart + size), GDbArchive::SEEKFROM_BEGIN);
        }
      }
      ar.EndReadObject();
#ifdef ZRN_HAS_CXXABI
    } catch (abi::__forced_unwind&) {
      throw; // thread cancellation must go on
#endif
    } catch (...) {
      ReportSerializeError(ar, "LOAD_DATA",
                           "LOAD_DATA" + Where(367) + "\ntypename: " + ClassName(typeid(*this)));
      ar.RollbackReadObject(static_cast<int>(start));
    }
    return true;
  }

  try {
    const long long id = ar.CreateNewObjectID();
    void const* const key = reinterpret_cast<void const*>(id);
    ar.BeginWriteObject(key, 1);
    ar.BeginWriteBlock(1, key);
    ar << m_nUniqueID;
    ar.EndWriteBlock(1, key);
    ar.EndWriteObject(key);
#ifdef ZRN_HAS_CXXABI
  } catch (abi::__forced_unwind&) {
    throw;
#endif
  } catch (...) {
    ReportSerializeError(ar, "SAVE_DATA",
                         "SAVE_DATA" + Where(376) + "\ntypename: " + ClassName(typeid(*this)));
    ar.RollbackWriteObject(static_cast<int>(start));
  }
  return true;
}

void IBaseProject::SaveProject(std::wstring const& path) {
  IDataIOFacade* const facade = GetIOFacade();
  GDBDevice* const device = m_pDBDevice;
  if (!device || !facade)
    return;
  device->Open(path);
  facade->PrepareSave(device);
  DeviceAccess access(*device, device->GetDeviceContext().saving);
  facade->SaveProjectData(this, device);
}

IBaseProject* IBaseProject::LoadProject(long long id, std::wstring const& path, GDBDevice* device) {
  IDataIOFacade* const facade = GetIOFacade();
  if (!device || !facade || !device->Open(path))
    return nullptr;
  if (id == 0) {
    std::vector<CVariant> values;
    device->QueryColumn("EntityTable", {"ID"}, "PID", 0, values);
    bool ok = false;
    if (!values.empty())
      id = values.front().toInt64(&ok);
    if (!ok)
      return nullptr;
  }
  IBaseEntity* root = nullptr;
  {
    DeviceAccess access(*device, device->GetDeviceContext().loading);
    root = facade->LoadProjectData(id, device);
  }
  return dynamic_cast<IBaseProject*>(root);
}

} // namespace zrn

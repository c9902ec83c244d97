#include <zrn/Object/Project.h>

#include <zrn/IO/DBDevice.h>
#include <zrn/IO/DataIOFacade.h>
#include <zrn/IO/DbArchive.h>
#include <zrn/IO/TaggedObject.h>
#include <zrn/Property/Variant.h>

#include <string>
#include <typeinfo>
#include <vector>

namespace zrn {

namespace {

// The project's one block: its unique-ID counter.
constexpr unsigned char kCounterBlock = 1;
// The newest version of the project's object that this library reads.
constexpr unsigned short kProjectVersion = 1;

// The write half of the project's Serialize.
bool WriteCounter(GTaggedObject& object, GDbArchive& ar, long long counter) {
  return object.Write(kProjectVersion,
                      [&] { object.Block(kCounterBlock, [&] { ar << counter; }); });
}

// The read half: a block other than the counter's is skipped.
bool ReadCounter(GTaggedObject& object, GDbArchive& ar, long long& counter) {
  return object.Read(kProjectVersion, [&](unsigned char tag) {
    if (tag != kCounterBlock)
      return false;
    ar >> counter;
    return true;
  });
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
  GTaggedObject object(ar, typeid(*this));
  return ar.IsLoading() ? ReadCounter(object, ar, m_nUniqueID)
                        : WriteCounter(object, ar, m_nUniqueID);
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

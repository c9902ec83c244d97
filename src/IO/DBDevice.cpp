#include <zrn/IO/DBDevice.h>
#include <zrn/IO/DataIOFacade.h>

namespace zrn {

IODeviceContext::IODeviceContext()
    : loading(false), saving(false), suppressDeleteLog(false), lazyModifiedMode(2) {}

void IODeviceContext::SetNeedLazyCaculateModified() {
  if (lazyModifiedMode == 0)
    lazyModifiedMode = 2;
}

GDBDevice::GDBDevice() = default;
GDBDevice::GDBDevice(GDBDevice const& other) = default;
GDBDevice& GDBDevice::operator=(GDBDevice const& other) = default;
GDBDevice::~GDBDevice() = default;

IDataIOFacade::~IDataIOFacade() = default;

namespace {
IDataIOFacade* g_pIOFacade = nullptr;
} // namespace

IDataIOFacade* GetIOFacade() { return g_pIOFacade; }

void SetIOFacade(IDataIOFacade* facade) { g_pIOFacade = facade; }

} // namespace zrn

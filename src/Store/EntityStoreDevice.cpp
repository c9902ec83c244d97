#include <zrn/Profile/ErrorCode.h>
#include <zrn/Store/EntityStoreDevice.h>

namespace zrn {

GEntityStoreDevice::GEntityStoreDevice() = default;
GEntityStoreDevice::~GEntityStoreDevice() = default;

bool GEntityStoreDevice::SetError(std::string text) {
  m_strLastError = std::move(text);
  ErrorCode::Report(err_failed, m_strLastError.c_str());
  return false;
}

void GEntityStoreDevice::ResetBookkeeping() {
  m_swapIds.clear();
  m_orderedParents.clear();
  m_pSynced = nullptr;
}

} // namespace zrn

// The small devices and the parts of the device base that need a home.
#include <zrn/IO/DataSizeStream.h>
#include <zrn/IO/EndianInfo.h>
#include <zrn/IO/IODevice.h>
#include <zrn/Profile/ErrorCode.h>

#include "IO/DeviceFailure.h"

#include <bit>

namespace zrn {

GIODevice::~GIODevice() = default;

void detail::ReportDeviceFailure(std::string const& text) {
  ErrorCode::Report(err_failed, text.c_str());
}

GDataSizeStream::~GDataSizeStream() = default;

CEndianInfoMananger::CEndianInfoMananger() : m_bLittleEndian(is_little_endian() == 1) {}

CEndianInfoMananger::~CEndianInfoMananger() = default;

CEndianInfoMananger* CEndianInfoMananger::GetInstance() {
  // Derived only to reach the protected constructor and destructor.
  struct Instance : CEndianInfoMananger {};
  static Instance instance;
  return &instance;
}

int CEndianInfoMananger::is_little_endian() {
  return std::endian::native == std::endian::little ? 1 : 0;
}

} // namespace zrn

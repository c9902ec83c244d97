#include <zrn/IO/DbArchive.h>

namespace zrn {

GDbArchive::GDbArchive() : m_nCurrentVersion(0), m_nGeometryVersion(sc_BasicVersion) {}

GDbArchive::GDbArchive(GDbArchive const& other) = default;

GDbArchive& GDbArchive::operator=(GDbArchive const& other) = default;

GDbArchive::~GDbArchive() = default;

std::map<unsigned short, unsigned short>* GDbArchive::GetMapPropertyID(eGBMDataType type,
                                                                       bool create) {
  if (create)
    return &m_mapPropertyID[type];
  const auto found = m_mapPropertyID.find(type);
  return found == m_mapPropertyID.end() ? nullptr : &found->second;
}

} // namespace zrn

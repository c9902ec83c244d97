#include "Values.h"

#include <zrn/IO/TaggedObject.h>

#include <cassert>
#include <string>
#include <typeinfo>

CValuesImpl::CValuesImpl(ValueNames names) : m_names(names) {
  assert(names.size() <= kMaxValues && "a class names at most kMaxValues values");
}

bool CValuesImpl::Set(std::size_t slot, double value) {
  double& current = m_values.at(slot);
  if (current == value)
    return false;
  current = value;
  return true;
}

bool CValuesImpl::Serialize(zrn::GDbArchive& ar) {
  zrn::GTaggedObject object(ar, typeid(*this));
  if (!ar.IsLoading())
    return object.Write(1, [&] { object.Block(kValuesBlock, [&] { WriteValues(ar); }); });
  return object.Read(1, [&](unsigned char tag) {
    if (tag != kValuesBlock)
      return false; // written by a newer host: skipped by its size
    ReadValues(ar);
    return true;
  });
}

void CValuesImpl::WriteValues(zrn::GDbArchive& ar) const {
  ar << static_cast<unsigned char>(m_names.size());
  for (std::size_t slot = 0; slot < m_names.size(); ++slot)
    ar << m_names[slot] << m_values[slot];
}

void CValuesImpl::ReadValues(zrn::GDbArchive& ar) {
  unsigned char count = 0;
  ar >> count;
  std::string name; // names are short: they fit the string without a heap block
  for (unsigned char i = 0; i < count; ++i) {
    double value = 0;
    ar >> name >> value;
    for (std::size_t slot = 0; slot < m_names.size(); ++slot)
      if (name == m_names[slot])
        m_values[slot] = value;
  }
}

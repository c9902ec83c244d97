// The one map from a variant's type to the union member that holds its
// plain value, shared by archiving and the numeric conversions.
#ifndef ZRN_SRC_PROPERTY_PLAINVALUE_H
#define ZRN_SRC_PROPERTY_PLAINVALUE_H

#include <zrn/Property/Variant.h>

namespace zrn::detail {

/// Calls `visit` with the union member of `data` (a VariantStru, const or
/// not) that holds a number or flag of its type and returns true; returns
/// false without calling it for any other type, object ids included.
template <class Data, class Visit> bool VisitNumber(Data& data, Visit&& visit) {
  auto& v = data.m_value;
  switch (data.m_eType) {
  case GBM_INT:
    visit(v.nVal);
    return true;
  case GBM_DOUBLE:
    visit(v.dVal);
    return true;
  case GBM_INT64:
    visit(v.llVal);
    return true;
  case GBM_BOOL:
    visit(v.bVal);
    return true;
  case GBM_CHAR:
    visit(v.cVal);
    return true;
  case GBM_UCHAR:
    visit(v.ucVal);
    return true;
  case GBM_SHORT:
    visit(v.sVal);
    return true;
  case GBM_USHORT:
    visit(v.usVal);
    return true;
  case GBM_UINT:
    visit(v.unVal);
    return true;
  case GBM_FLOAT:
    visit(v.fVal);
    return true;
  case GBM_UINT64:
    visit(v.ullVal);
    return true;
  default:
    return false;
  }
}

/// VisitNumber, and object ids as unsigned 64-bit values: everything a
/// variant stores in place rather than behind a pointer. Null, strings and
/// geometric values call nothing.
template <class Data, class Visit> void VisitPlain(Data& data, Visit&& visit) {
  if (data.m_eType == GBM_OBJECT_ID)
    visit(data.m_value.ullVal);
  else
    VisitNumber(data, visit);
}

} // namespace zrn::detail

#endif

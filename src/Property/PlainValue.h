// The one map from a variant's type to the union member that holds its
// plain value, shared by archiving and the numeric conversions.
#ifndef ZRN_SRC_PROPERTY_PLAINVALUE_H
#define ZRN_SRC_PROPERTY_PLAINVALUE_H

#include <zrn/Property/Variant.h>

namespace zrn::detail {

/// Whether VisitValue treats an object id as a plain value (archiving does;
/// the numeric conversions do not).
enum class ObjectIds { Plain, Other };

/// `visit(member)` for the union member of `data` (a VariantStru, const or
/// not) that holds a number or flag of its type, object ids included when
/// `ids` says so; `otherwise()` for every other type (null, strings,
/// geometric values...). Both must return the same type.
template <ObjectIds ids, class Data, class Visit, class Otherwise>
auto VisitValue(Data& data, Visit&& visit, Otherwise&& otherwise) {
  auto& v = data.m_value;
  switch (data.m_eType) {
  case GBM_INT:
    return visit(v.nVal);
  case GBM_DOUBLE:
    return visit(v.dVal);
  case GBM_INT64:
    return visit(v.llVal);
  case GBM_BOOL:
    return visit(v.bVal);
  case GBM_CHAR:
    return visit(v.cVal);
  case GBM_UCHAR:
    return visit(v.ucVal);
  case GBM_SHORT:
    return visit(v.sVal);
  case GBM_USHORT:
    return visit(v.usVal);
  case GBM_UINT:
    return visit(v.unVal);
  case GBM_FLOAT:
    return visit(v.fVal);
  case GBM_UINT64:
    return visit(v.ullVal);
  case GBM_OBJECT_ID:
    if constexpr (ids == ObjectIds::Plain)
      return visit(v.ullVal);
    else
      return otherwise();
  default:
    return otherwise();
  }
}

} // namespace zrn::detail

#endif

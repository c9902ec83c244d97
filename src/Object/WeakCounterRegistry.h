// The process-wide table that links observed objects to their weak counters.
#ifndef ZRN_SRC_OBJECT_WEAKCOUNTERREGISTRY_H
#define ZRN_SRC_OBJECT_WEAKCOUNTERREGISTRY_H

namespace zrn {
class CReferenced;

namespace detail {

/// Called from every CReferenced destructor: invalidates and drops the
/// object's weak counter, if it has one. Cheap while no object is observed.
void ForgetWeakCounter(CReferenced const* object);

} // namespace detail
} // namespace zrn

#endif

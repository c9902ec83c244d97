// How library values and Python values map onto each other: CVariant to
// Python and back, and the small value classes zrn.Color and zrn.ObjectId.
#ifndef ZRN_PYTHON_VALUES_H
#define ZRN_PYTHON_VALUES_H

#include <pybind11/pybind11.h>

#include <zrn/Property/Variant.h>

namespace zrn::python {

/// zrn.Color: four channels of 0 to 255; an immutable value.
struct SColor {
  unsigned char r = 0;
  unsigned char g = 0;
  unsigned char b = 0;
  unsigned char a = 255;
};

/// zrn.ObjectId: an object id held by a value, told apart from a plain int.
struct SObjectId {
  unsigned long long value = 0;
};

/// `value` as a Python object: None, bool, int, float, str, Color, ObjectId
/// or tuples of floats for geometric values. TypeError for a data type with
/// no Python form (counted objects, memory streams, host types).
pybind11::object ToPython(CVariant const& value);

/// `value` as a variant. `current` is the value the property holds now (or
/// null): a Python int or float written over a number keeps that number's
/// type when it fits, a str over a narrow string stays narrow. TypeError for
/// a Python type with no variant form, ValueError for a value out of range
/// or a tuple that is no geometric value.
CVariant FromPython(pybind11::handle value, CVariant const* current = nullptr);

/// `value` as a double, for values that must be numbers: TypeError for
/// anything else. `what` names the value in the message.
double NumberFromPython(pybind11::handle value, char const* what);

/// Defines zrn.Color and zrn.ObjectId.
void BindValues(pybind11::module_& module);

} // namespace zrn::python

#endif

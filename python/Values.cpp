#include "Values.h"

#include <pybind11/stl.h>

#include <zrn/Object/DataType.h>

#include <cmath>
#include <limits>
#include <string>

namespace py = pybind11;

namespace zrn::python {

namespace {

std::string TypeNameOf(py::handle value) { return Py_TYPE(value.ptr())->tp_name; }

[[noreturn]] void NoPythonForm(CVariant const& value) {
  throw py::type_error("a value of data type " + std::to_string(value.GetVariantStru().m_eType) +
                       " has no Python form");
}

// `count` doubles as a tuple; a geometric value read from a stream holds no
// coordinates (null) and reads as zeros.
py::tuple Doubles(double const* values, std::size_t count) {
  py::tuple result(count);
  for (std::size_t i = 0; i < count; ++i)
    result[i] = py::float_(values ? values[i] : 0.0);
  return result;
}

py::tuple Points(double const* values, std::size_t points) {
  py::tuple result(points);
  for (std::size_t i = 0; i < points; ++i)
    result[i] = Doubles(values ? values + 3 * i : nullptr, 3);
  return result;
}

py::object Geometry(CVariant const& value) {
  auto const* values = static_cast<double const*>(value.GetVariantStru().m_value.pVal);
  switch (value.GetVariantStru().m_eType) {
  case GBM_LOCAL_VEC2D:
    return Doubles(values, 2);
  case GBM_LOCAL_VEC3D:
    return Doubles(values, 3);
  case GBM_LOCAL_BOX:
    return Points(values, 2);
  default: // GBM_LOCAL_COORD3D
    return Points(values, 4);
  }
}

// `read(&ok)` as a Python object; TypeError when the conversion fails.
template <class Read> py::object Checked(CVariant const& value, Read read) {
  bool ok = false;
  auto result = read(&ok);
  if (!ok)
    NoPythonForm(value);
  return py::cast(result);
}

// The range and name of each integer type a property may hold.
struct SIntegerType {
  eGBMDataType type;
  long double min;
  long double max;
  char const* name;
};

template <class T> constexpr SIntegerType Integer(eGBMDataType type, char const* name) {
  return {type, static_cast<long double>(std::numeric_limits<T>::min()),
          static_cast<long double>(std::numeric_limits<T>::max()), name};
}

constexpr SIntegerType kIntegerTypes[] = {
    Integer<int>(GBM_INT, "int"),
    Integer<long long>(GBM_INT64, "64-bit int"),
    Integer<char>(GBM_CHAR, "char"),
    Integer<unsigned char>(GBM_UCHAR, "unsigned char"),
    Integer<short>(GBM_SHORT, "short"),
    Integer<unsigned short>(GBM_USHORT, "unsigned short"),
    Integer<unsigned int>(GBM_UINT, "unsigned int"),
    Integer<unsigned long long>(GBM_UINT64, "unsigned 64-bit int"),
};

SIntegerType const* IntegerType(eGBMDataType type) {
  for (SIntegerType const& candidate : kIntegerTypes)
    if (candidate.type == type)
      return &candidate;
  return nullptr;
}

// `n` (exact in a long double) as a variant of `type`, which it fits.
CVariant OfType(long double n, eGBMDataType type) {
  switch (type) {
  case GBM_INT:
    return CVariant(static_cast<int>(n));
  case GBM_INT64:
    return CVariant(static_cast<long long>(n));
  case GBM_CHAR:
    return CVariant(static_cast<char>(n));
  case GBM_UCHAR:
    return CVariant(static_cast<unsigned char>(n));
  case GBM_SHORT:
    return CVariant(static_cast<short>(n));
  case GBM_USHORT:
    return CVariant(static_cast<unsigned short>(n));
  case GBM_UINT:
    return CVariant(static_cast<unsigned int>(n));
  default: // GBM_UINT64
    return CVariant(static_cast<unsigned long long>(n));
  }
}

// A Python int as a long double, exact for every 64-bit value; ValueError
// beyond 64 bits.
long double IntegerOf(py::handle value) {
  int overflow = 0;
  long long const n = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
  if (overflow == 0)
    return static_cast<long double>(n);
  if (overflow > 0) {
    unsigned long long const u = PyLong_AsUnsignedLongLong(value.ptr());
    if (!PyErr_Occurred())
      return static_cast<long double>(u);
    PyErr_Clear();
  }
  throw py::value_error("integer " + py::str(value).cast<std::string>() +
                        " is out of range: values hold 64-bit integers");
}

CVariant IntFromPython(py::handle value, CVariant const* current) {
  long double const n = IntegerOf(value);
  eGBMDataType const kept = current ? current->GetVariantStru().m_eType : GBM_NONE;
  if (kept == GBM_DOUBLE)
    return CVariant(static_cast<double>(n));
  if (kept == GBM_FLOAT)
    return CVariant(static_cast<float>(n));
  if (SIntegerType const* integer = IntegerType(kept)) {
    if (n < integer->min || n > integer->max)
      throw py::value_error(py::str(value).cast<std::string>() +
                            " does not fit the property's type (" + integer->name + ")");
    return OfType(n, kept);
  }
  for (eGBMDataType type : {GBM_INT, GBM_INT64, GBM_UINT64})
    if (n >= IntegerType(type)->min && n <= IntegerType(type)->max)
      return OfType(n, type);
  return CVariant(); // not reached: IntegerOf keeps to 64 bits
}

CVariant FloatFromPython(py::handle value, CVariant const* current) {
  double const d = PyFloat_AsDouble(value.ptr());
  if (current && current->GetVariantStru().m_eType == GBM_FLOAT) {
    if (std::isfinite(d) && std::fabs(d) > std::numeric_limits<float>::max())
      throw py::value_error(py::str(value).cast<std::string>() +
                            " does not fit the property's type (float)");
    return CVariant(static_cast<float>(d));
  }
  return CVariant(d);
}

CVariant TextFromPython(py::handle value, CVariant const* current) {
  auto const text = value.cast<std::wstring>();
  if (!current || current->GetVariantStru().m_eType != GBM_STRING)
    return CVariant(text);
  bool ok = false;
  std::string narrow = CVariant(text).toString(&ok);
  if (!ok)
    throw py::value_error("the text cannot be held as narrow text");
  return CVariant(narrow);
}

bool IsNumber(py::handle item) { return PyLong_Check(item.ptr()) || PyFloat_Check(item.ptr()); }
bool IsSequence(py::handle item) { return PyTuple_Check(item.ptr()) || PyList_Check(item.ptr()); }

// Reads `count` numbers of `sequence` into `out`.
void ReadNumbers(py::sequence sequence, double* out) {
  for (std::size_t i = 0; i < sequence.size(); ++i) {
    py::object item = sequence[i];
    if (!IsNumber(item))
      throw py::type_error("coordinates must be numbers, not " + TypeNameOf(item));
    out[i] = item.cast<double>();
  }
}

// Fills `out` with `points` 3-sequences of numbers; false when an item is
// not a 3-sequence.
bool ReadPoints(py::sequence sequence, double* out) {
  for (std::size_t i = 0; i < sequence.size(); ++i) {
    py::object item = sequence[i];
    if (!IsSequence(item) || py::len(item) != 3)
      return false;
    ReadNumbers(py::reinterpret_borrow<py::sequence>(item), out + 3 * i);
  }
  return true;
}

CVariant GeometryFromPython(py::handle value) {
  auto const sequence = py::reinterpret_borrow<py::sequence>(value);
  std::size_t const size = sequence.size();
  CVariant result;
  if (size > 0 && IsSequence(sequence[0])) {
    double values[12] = {};
    if ((size == 2 || size == 4) && ReadPoints(sequence, values)) {
      if (size == 2)
        result =
            CBox3<double>{{values[0], values[1], values[2]}, {values[3], values[4], values[5]}};
      else
        result = CCoord3<double>{{values[0], values[1], values[2]},
                                 {values[3], values[4], values[5]},
                                 {values[6], values[7], values[8]},
                                 {values[9], values[10], values[11]}};
      return result;
    }
    throw py::value_error("a geometric value of points is a box (2 points) or a coordinate "
                          "system (4 points), each point 3 numbers");
  }
  if (size != 2 && size != 3)
    throw py::value_error("a tuple of " + std::to_string(size) +
                          " numbers is no geometric value: give 2 (vec2) or 3 (vec3)");
  double values[3] = {};
  ReadNumbers(sequence, values);
  if (size == 2)
    result = CVec2<double>{values[0], values[1]};
  else
    result = CVec3<double>{values[0], values[1], values[2]};
  return result;
}

std::string ColorRepr(SColor const& c) {
  return "zrn.Color(" + std::to_string(c.r) + ", " + std::to_string(c.g) + ", " +
         std::to_string(c.b) + ", " + std::to_string(c.a) + ")";
}

unsigned char Channel(int value, char const* name) {
  if (value < 0 || value > 255)
    throw py::value_error(std::string("colour channel ") + name + " must be 0 to 255, not " +
                          std::to_string(value));
  return static_cast<unsigned char>(value);
}

} // namespace

py::object ToPython(CVariant const& value) {
  switch (value.GetVariantStru().m_eType) {
  case GBM_NONE:
    return py::none();
  case GBM_BOOL:
    return Checked(value, [&](bool* ok) { return value.toBool(ok); });
  case GBM_INT:
  case GBM_INT64:
  case GBM_CHAR:
  case GBM_SHORT:
    return Checked(value, [&](bool* ok) { return value.toInt64(ok); });
  case GBM_UCHAR:
  case GBM_USHORT:
  case GBM_UINT:
  case GBM_UINT64:
    return Checked(value, [&](bool* ok) { return value.toUInt64(ok); });
  case GBM_DOUBLE:
  case GBM_FLOAT:
    return Checked(value, [&](bool* ok) { return value.toDouble(ok); });
  case GBM_STRING:
  case GBM_WSTRING:
    return Checked(value, [&](bool* ok) { return value.toWString(ok); });
  case GBM_COLOR:
    return Checked(value, [&](bool* ok) {
      CColor const c = value.toColor(ok);
      return SColor{c.GetRed(), c.GetGreen(), c.GetBlue(), c.GetAlpha()};
    });
  case GBM_OBJECT_ID:
    return Checked(value, [&](bool* ok) { return SObjectId{value.toObjectID(ok)}; });
  case GBM_FILE_ADDRESS: {
    auto const* address = static_cast<FileAddress const*>(value.GetVariantStru().m_value.pVal);
    return py::int_(address ? address->value : 0);
  }
  case GBM_LOCAL_VEC2D:
  case GBM_LOCAL_VEC3D:
  case GBM_LOCAL_BOX:
  case GBM_LOCAL_COORD3D:
    return Geometry(value);
  default:
    NoPythonForm(value);
  }
}

CVariant FromPython(py::handle value, CVariant const* current) {
  PyObject* object = value.ptr();
  if (value.is_none())
    return CVariant();
  if (PyBool_Check(object))
    return CVariant(object == Py_True);
  if (PyLong_Check(object))
    return IntFromPython(value, current);
  if (PyFloat_Check(object))
    return FloatFromPython(value, current);
  if (PyUnicode_Check(object))
    return TextFromPython(value, current);
  if (py::isinstance<SColor>(value)) {
    auto const& c = value.cast<SColor const&>();
    return CVariant(CColor(c.r, c.g, c.b, c.a));
  }
  if (py::isinstance<SObjectId>(value)) {
    CVariant id;
    id.SetObjectID(value.cast<SObjectId const&>().value);
    return id;
  }
  if (IsSequence(value))
    return GeometryFromPython(value);
  throw py::type_error("cannot store a value of type '" + TypeNameOf(value) + "'");
}

double NumberFromPython(py::handle value, char const* what) {
  if (PyBool_Check(value.ptr()) || !IsNumber(value))
    throw py::type_error(std::string(what) + " must be a number, not " + TypeNameOf(value));
  bool ok = false;
  double const number = FromPython(value).toDouble(&ok);
  if (!ok)
    throw py::type_error(std::string(what) + " must be a number");
  return number;
}

void BindValues(py::module_& module) {
  py::class_<SColor>(module, "Color", "A colour: red, green, blue and alpha, each 0 to 255.")
      .def(py::init([](int r, int g, int b, int a) {
             return SColor{Channel(r, "r"), Channel(g, "g"), Channel(b, "b"), Channel(a, "a")};
           }),
           py::arg("r"), py::arg("g"), py::arg("b"), py::arg("a") = 255)
      .def_readonly("r", &SColor::r)
      .def_readonly("g", &SColor::g)
      .def_readonly("b", &SColor::b)
      .def_readonly("a", &SColor::a)
      .def("__eq__",
           [](SColor const& self, py::object other) -> py::object {
             if (!py::isinstance<SColor>(other))
               return py::reinterpret_borrow<py::object>(Py_NotImplemented);
             auto const& c = other.cast<SColor const&>();
             return py::bool_(self.r == c.r && self.g == c.g && self.b == c.b && self.a == c.a);
           })
      .def("__hash__", [](SColor const& c) { return (c.r << 24) | (c.g << 16) | (c.b << 8) | c.a; })
      .def("__repr__", &ColorRepr);

  py::class_<SObjectId>(module, "ObjectId", "An object id held as a value (not a plain int).")
      .def(py::init([](py::int_ value) {
             unsigned long long const id = PyLong_AsUnsignedLongLong(value.ptr());
             if (PyErr_Occurred()) {
               PyErr_Clear();
               throw py::value_error("an object id is 0 to 2**64 - 1, not " +
                                     py::str(value).cast<std::string>());
             }
             return SObjectId{id};
           }),
           py::arg("value"))
      .def_readonly("value", &SObjectId::value)
      .def("__int__", [](SObjectId const& id) { return id.value; })
      .def("__eq__",
           [](SObjectId const& self, py::object other) -> py::object {
             if (!py::isinstance<SObjectId>(other))
               return py::reinterpret_borrow<py::object>(Py_NotImplemented);
             return py::bool_(self.value == other.cast<SObjectId const&>().value);
           })
      .def("__hash__",
           [](SObjectId const& id) { return std::hash<unsigned long long>()(id.value); })
      .def("__repr__",
           [](SObjectId const& id) { return "zrn.ObjectId(" + std::to_string(id.value) + ")"; });
}

} // namespace zrn::python

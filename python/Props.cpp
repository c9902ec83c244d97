// zrn.Props: an entity's named values as a mapping. A property entity's are
// its property collection's; a frame object's are its numbers.
#include "Tree.h"
#include "Values.h"

#include <optional>
#include <string_view>

namespace py = pybind11;

namespace zrn::python {

namespace {

/// The props of one entity; every call locks the project and resolves the
/// entity again.
struct SProps {
  std::shared_ptr<CEntityRef> ref;
};

void CheckName(py::handle key) {
  if (!PyUnicode_Check(key.ptr()))
    throw py::type_error(std::string("property names are str, not ") + Py_TYPE(key.ptr())->tp_name);
}

std::string_view Utf8(py::handle key) {
  CheckName(key);
  Py_ssize_t size = 0;
  char const* text = PyUnicode_AsUTF8AndSize(key.ptr(), &size); // cached by the str
  if (!text)
    throw py::error_already_set();
  return {text, static_cast<std::size_t>(size)};
}

// `key` as a wide name in the project's reused buffer.
std::wstring const& WideName(CProjectState& state, py::handle key) {
  CheckName(key);
  std::wstring& name = state.NameBuffer();
  name.resize(static_cast<std::size_t>(PyUnicode_GetLength(key.ptr())));
  PyUnicode_AsWideChar(key.ptr(), name.data(), static_cast<Py_ssize_t>(name.size()));
  return name;
}

std::optional<std::size_t> SlotOf(CFrameObject& frame, std::string_view name) {
  ValueNames const names = frame.Names();
  for (std::size_t slot = 0; slot < names.size(); ++slot)
    if (name == names[slot])
      return slot;
  return std::nullopt;
}

// Whether the collection holds `name`, also with a null value. A walk: used
// only when GetProperty has found nothing.
bool Holds(CPropertyCollection& properties, std::wstring const& name) {
  std::wstring product, held;
  CVariant value;
  properties.First();
  while (properties.Next(product, held, value))
    if (held == name)
      return true;
  return false;
}

// The entity, locked; the library is locked too where the call reaches the
// store (a swapped-out entity) or the process-wide property schemes.
class CLockedProps : public CLockedEntity {
public:
  explicit CLockedProps(SProps const& props) : CLockedEntity(*props.ref) {
    if (Ref().Properties() || (**this).HasObjectFlag(EGOBJECT_FLAG_SWAPPED))
      Library();
  }
};

[[noreturn]] void Missing(py::handle key) {
  throw py::key_error(py::repr(key).cast<std::string>());
}

// The value of `key`; nothing when the entity has no such name.
std::optional<py::object> Find(SProps const& props, py::handle key) {
  CLockedProps locked(props);
  if (CPropertyEntity* entity = locked.Ref().Properties()) {
    std::wstring const& name = WideName(locked.Ref().State(), key);
    CVariant const value = entity->Properties().GetProperty(name);
    if (!value.IsNull() || Holds(entity->Properties(), name))
      return ToPython(value);
  } else if (CFrameObject* frame = locked.Ref().Frame()) {
    if (auto slot = SlotOf(*frame, Utf8(key)))
      return py::float_(frame->Value(*slot));
  } else {
    CheckName(key);
  }
  return std::nullopt;
}

py::object Get(SProps const& props, py::handle key) {
  std::optional<py::object> found = Find(props, key);
  if (!found)
    Missing(key);
  return *found;
}

void SetFrameValue(CFrameObject& frame, std::size_t slot, double value) {
  if (auto* parameters = dynamic_cast<CParameters*>(&frame)) {
    // Marks the parameter for the next regeneration, as the host does.
    parameters->SetParameter(static_cast<CParameters::Slot>(slot), value);
    return;
  }
  if (frame.Values().Set(slot, value))
    frame.SetObjectFlag(true, EGOBJECT_FLAG_MODIFIED);
}

void Set(SProps const& props, py::handle key, py::handle value) {
  CLockedProps locked(props);
  if (CPropertyEntity* entity = locked.Ref().Properties()) {
    std::wstring const& name = WideName(locked.Ref().State(), key);
    CPropertyCollection& properties = entity->Properties();
    CVariant const current = properties.GetProperty(name);
    properties.SetProperty(name, FromPython(value, current.IsNull() ? nullptr : &current));
    if (properties.GetPropertyID(name) == 0)
      throw py::value_error("no property id is free for another name of this class");
    entity->SetObjectFlag(true, EGOBJECT_FLAG_MODIFIED);
  } else if (CFrameObject* frame = locked.Ref().Frame()) {
    auto slot = SlotOf(*frame, Utf8(key));
    if (!slot)
      Missing(key);
    SetFrameValue(*frame, *slot, NumberFromPython(value, "a frame value"));
  } else {
    throw py::type_error("entity " + std::to_string(locked.Ref().Id()) + " holds no properties");
  }
}

void Delete(SProps const& props, py::handle key) {
  CLockedProps locked(props);
  if (CPropertyEntity* entity = locked.Ref().Properties()) {
    std::wstring const& name = WideName(locked.Ref().State(), key);
    if (!Holds(entity->Properties(), name))
      Missing(key);
    entity->Properties().RemoveProperty(name);
    entity->SetObjectFlag(true, EGOBJECT_FLAG_MODIFIED);
  } else if (CFrameObject* frame = locked.Ref().Frame()) {
    if (!SlotOf(*frame, Utf8(key)))
      Missing(key);
    throw py::type_error("the values of a frame object cannot be removed");
  } else {
    Missing(key);
  }
}

// Every (name, value) pair, in id order for properties and slot order for
// frame values; values only when `withValues`.
py::list Pairs(SProps const& props, bool withValues) {
  CLockedProps locked(props);
  py::list pairs;
  auto add = [&](py::object name, auto value) {
    pairs.append(withValues ? py::object(py::make_tuple(name, value())) : name);
  };
  if (CPropertyEntity* entity = locked.Ref().Properties()) {
    std::wstring product, name;
    CVariant value;
    entity->Properties().First();
    while (entity->Properties().Next(product, name, value))
      add(py::cast(name), [&] { return ToPython(value); });
  } else if (CFrameObject* frame = locked.Ref().Frame()) {
    ValueNames const names = frame->Names();
    for (std::size_t slot = 0; slot < names.size(); ++slot)
      add(py::str(names[slot]), [&] { return py::float_(frame->Value(slot)); });
  }
  return pairs;
}

} // namespace

py::object MakeProps(std::shared_ptr<CEntityRef> const& ref) { return py::cast(SProps{ref}); }

void BindProps(py::module_& module) {
  py::class_<SProps>(module, "Props",
                     "An entity's named values as a mapping: a property entity's properties, "
                     "or a frame object's numbers.")
      .def("__getitem__", &Get)
      .def("__setitem__", &Set)
      .def("__delitem__", &Delete)
      .def(
          "get",
          [](SProps const& p, py::handle key, py::object fallback) {
            return Find(p, key).value_or(fallback);
          },
          py::arg("key"), py::arg("default") = py::none())
      .def("__contains__",
           [](SProps const& p, py::handle key) {
             return PyUnicode_Check(key.ptr()) && Find(p, key).has_value();
           })
      .def("__len__", [](SProps const& p) { return Pairs(p, false).size(); })
      .def("keys", [](SProps const& p) { return Pairs(p, false); })
      .def("items", [](SProps const& p) { return Pairs(p, true); })
      .def("values",
           [](SProps const& p) {
             py::list values;
             for (py::handle pair : Pairs(p, true))
               values.append(pair.cast<py::tuple>()[1]);
             return values;
           })
      .def("__iter__", [](SProps const& p) { return py::iter(Pairs(p, false)); })
      .def("__repr__", [](SProps const& p) { return py::repr(py::dict(Pairs(p, true))); });
}

} // namespace zrn::python

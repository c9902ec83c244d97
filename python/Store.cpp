// zrn.open, zrn.create and zrn.Project: projects in SQLite files and on
// PostgreSQL servers, opened, looked into, saved and closed.
#include "Store.h"
#include "Module.h"
#include "Tree.h"

#include <zrn/Store/StoreDevice.h>

#include <filesystem>
#include <string>

namespace py = pybind11;

namespace zrn::python {

namespace {

/// zrn.Project: owns the use of its project. Dropping it closes the
/// project, whatever wrappers of its entities remain.
struct SProject {
  std::shared_ptr<CProjectState> state;

  SProject(std::shared_ptr<CProjectState> s) : state(std::move(s)) {}
  SProject(SProject&&) = default;
  ~SProject() {
    if (state)
      Close();
  }
  void Close() {
    CProjectLock lock(*state, true);
    py::gil_scoped_release released; // a large tree takes a while to free
    state->Close();
  }
};

std::string Shown(std::wstring const& where) {
  return std::filesystem::path(ShownStore(where)).string();
}

// `where` (a str or a path-like object) as the store devices take it.
std::wstring Where(py::handle where) {
  py::object text = py::module_::import("os").attr("fspath")(where);
  if (!PyUnicode_Check(text.ptr()))
    throw py::type_error("a store is named by a str or a path, not bytes");
  return text.cast<std::wstring>();
}

[[noreturn]] void RaiseOsError(PyObject* type, std::string const& message) {
  PyErr_SetString(type, message.c_str());
  throw py::error_already_set();
}

bool IsFile(std::wstring const& where) { return !IsServerStoreUrl(where); }

std::unique_ptr<IBaseProject> Load(std::wstring const& where, bool eager) {
  auto library = LockReleasingGil(LibraryMutex());
  std::unique_ptr<GEntityStoreDevice> device(CreateStoreDevice(where));
  std::unique_ptr<IBaseProject> project;
  {
    py::gil_scoped_release released;
    Facade().SetEagerLoad(eager);
    project.reset(IBaseProject::LoadProject(0, where, device.get()));
    Facade().SetEagerLoad(false);
  }
  if (!project)
    throw CStoreError(
        "cannot open " + Shown(where) + ": " +
        (device->LastError().empty() ? "no project in the store" : device->LastError()));
  device.release(); // the project owns it now
  return project;
}

SProject Open(py::handle whereObject, bool eager) {
  std::wstring const where = Where(whereObject);
  if (IsFile(where) && !std::filesystem::exists(std::filesystem::path(where)))
    RaiseOsError(PyExc_FileNotFoundError, "no store at " + Shown(where));
  auto state = std::make_shared<CProjectState>(where);
  std::unique_ptr<IBaseProject> project = Load(where, eager);
  CProjectLock lock(*state, true);
  state->Adopt(std::move(project));
  return SProject(state);
}

SProject Create(py::handle whereObject) {
  std::wstring const where = Where(whereObject);
  if (IsFile(where) && std::filesystem::exists(std::filesystem::path(where)))
    RaiseOsError(PyExc_FileExistsError, Shown(where) + " exists already");
  auto state = std::make_shared<CProjectState>(where);
  CProjectLock lock(*state, true);
  auto project = std::make_unique<IBaseProject>();
  GEntityStoreDevice* device = CreateStoreDevice(where);
  project->SetProjectDBDevice(device);
  bool opened = false;
  {
    py::gil_scoped_release released;
    opened = device->Open(where);
  }
  if (!opened)
    throw CStoreError("cannot create a store at " + Shown(where) + ": " + device->LastError());
  state->Adopt(std::move(project));
  return SProject(state);
}

std::size_t Save(SProject& self) {
  CProjectLock lock(*self.state, true);
  IBaseProject& project = self.state->Project();
  {
    py::gil_scoped_release released;
    project.SaveProject(self.state->Where());
  }
  if (!Facade().LastSaveSucceeded())
    throw CStoreError("saving to " + Shown(self.state->Where()) +
                      " failed: " + self.state->Device().LastError());
  return Facade().LastSaveRowCount();
}

py::object Lookup(SProject& self, long long id, bool raise) {
  CProjectLock lock(*self.state, false);
  self.state->Project(); // raises when closed
  if (IBaseEntity* entity = self.state->Find(id))
    return WrapEntity(self.state, entity);
  if (raise)
    throw py::key_error("no entity " + std::to_string(id));
  return py::none();
}

void Remove(SProject& self, long long id) {
  CProjectLock lock(*self.state, true);
  self.state->Project();
  IBaseEntity* entity = self.state->Find(id);
  if (!entity)
    throw py::key_error("no entity " + std::to_string(id));
  RemoveEntity(*self.state, *entity);
}

} // namespace

void BindStore(py::module_& module) {
  py::class_<SProject>(module, "Project", "An open project and its store.")
      .def_property_readonly("root",
                             [](SProject& self) {
                               CProjectLock lock(*self.state, false);
                               return WrapEntity(self.state, &self.state->Project());
                             })
      .def_property_readonly("closed",
                             [](SProject& self) {
                               CProjectLock lock(*self.state, false);
                               return !self.state->IsOpen();
                             })
      .def_property_readonly("where", [](SProject& self) { return Shown(self.state->Where()); })
      .def_property_readonly("has_frame",
                             [](SProject& self) {
                               CProjectLock lock(*self.state, false);
                               self.state->Project();
                               return self.state->Model() != nullptr;
                             })
      .def("__getitem__", [](SProject& self, long long id) { return Lookup(self, id, true); })
      .def(
          "find", [](SProject& self, long long id) { return Lookup(self, id, false); },
          "The entity with the id, or None.")
      .def("__contains__",
           [](SProject& self, long long id) {
             CProjectLock lock(*self.state, false);
             self.state->Project();
             return self.state->Find(id) != nullptr;
           })
      .def("__len__",
           [](SProject& self) {
             CProjectLock lock(*self.state, false);
             self.state->Project();
             return self.state->Size();
           })
      .def(
          "walk", [](SProject& self) { return Walk(self.state); },
          "Every entity, depth first in child order, the root first.")
      .def("save", &Save, "Writes what changed since the last save; returns the rows written.")
      .def("remove", &Remove, py::arg("id"), "Deletes the entity with the id and its subtree.")
      .def(
          "regenerate",
          [](SProject& self) {
            CProjectLock lock(*self.state, true);
            return Regenerate(*self.state);
          },
          "Runs a regeneration pass over the marked changes of a frame.")
      .def("close", &SProject::Close, "Frees the tree; unsaved changes are dropped.")
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](SProject& self, py::args) { self.Close(); })
      .def("__repr__",
           [](SProject& self) { return "<zrn.Project " + Shown(self.state->Where()) + ">"; });

  module.def("open", &Open, py::arg("where"), py::arg("eager") = false,
             "Opens the project stored in an SQLite file or at a postgresql:// URL.");
  module.def("create", &Create, py::arg("where"),
             "Makes a new, empty project stored in a new SQLite file or at a postgresql:// URL.");
}

} // namespace zrn::python

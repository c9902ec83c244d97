// zrn.Entity and zrn.Children: the tree of an open project, and the walk
// over it.
#include "Tree.h"
#include "Module.h"

#include <pybind11/stl.h>

#include <string>
#include <vector>

namespace py = pybind11;

namespace zrn::python {

CEntityRef::CEntityRef(std::shared_ptr<CProjectState> state, IBaseEntity* entity)
    : m_state(std::move(state)), m_entity(entity), m_frame(dynamic_cast<CFrameObject*>(entity)),
      m_properties(dynamic_cast<CPropertyEntity*>(entity)), m_id(entity->GetObjectID()),
      m_generation(m_state->Generation()) {}

void CEntityRef::Refresh() {
  if (!m_state->IsOpen())
    throw std::runtime_error("project is closed");
  // Ids are never reused within a project, so the id finds this very
  // entity or nothing.
  if (m_state->Find(m_id) != m_entity)
    throw std::runtime_error("entity " + std::to_string(m_id) + " was deleted");
  m_generation = m_state->Generation();
}

py::object WrapEntity(std::shared_ptr<CProjectState> const& state, IBaseEntity* entity) {
  return py::cast(SEntity{std::make_shared<CEntityRef>(state, entity), py::none()});
}

int TypeIdOf(IBaseEntity const& entity) { return Facade().Types().TypeOf(entity); }

void RemoveEntity(CProjectState& state, IBaseEntity& entity) {
  if (&entity == &state.Project())
    throw py::value_error("the project itself cannot be removed");
  std::vector<IBaseEntity*> subtree;
  IBaseEntity::GetAllLeafChild(&entity, subtree);
  std::vector<long long> ids;
  for (IBaseEntity* node : subtree)
    ids.push_back(node->GetObjectID());
  CFrameModel* model = state.Model();
  auto const id = static_cast<unsigned long long>(entity.GetObjectID());
  if (model && model->Find(id) == &entity) {
    if (&entity == &model->Parameters() || &entity == &model->Totals())
      throw py::value_error("entity " + std::to_string(id) +
                            " cannot be removed: the frame needs its parameters and totals");
    model->RemoveObject(id);       // the model deletes it, and reports it after the next pass
    model->Parameters().MarkAll(); // which then computes the frame without it
  } else {
    entity.GetParent()->DeleteChild(&entity);
  }
  state.Forget(ids);
}

namespace {

/// zrn.Children: an entity's children as a sequence.
struct SChildren {
  std::shared_ptr<CEntityRef> ref;
};

/// The iterator of Project.walk(): pre-order with an explicit stack.
struct SWalk {
  std::shared_ptr<CProjectState> state;
  std::vector<IBaseEntity*> pending;
  unsigned long long generation;
};

std::string TypeNameOf(CEntityRef& ref, IBaseEntity& entity) {
  if (CFrameObject* frame = ref.Frame())
    return py::cast(std::wstring(frame->TypeName())).cast<std::string>();
  switch (TypeIdOf(entity)) {
  case 0:
    return "entity";
  case 1:
    return "project";
  case CPropertyEntity::kTypeId:
    return "properties";
  default:
    return "type " + std::to_string(TypeIdOf(entity));
  }
}

py::object Parent(SEntity const& self) {
  CLockedEntity entity(*self.ref);
  IBaseEntity* parent = entity->GetParent();
  return parent ? WrapEntity(self.ref->SharedState(), parent) : py::none();
}

py::object AddChild(SEntity const& self) {
  CLockedEntity entity(*self.ref);
  auto* child = new CPropertyEntity;
  entity->AddChild(child); // gives it the project's next id
  self.ref->State().Index(child);
  return WrapEntity(self.ref->SharedState(), child);
}

py::bytes Blob(SEntity const& self) {
  CLockedEntity locked(*self.ref);
  locked.Library();
  IBaseEntity& entity = *locked;
  CProjectState& state = self.ref->State();
  std::string bytes;
  bool const project = &entity == &state.Project();
  GEntityStoreDevice& device = state.Device();
  if (!(project ? device.ReadProjectState(entity.GetObjectID(), bytes)
                : device.ReadEntityData(entity.GetObjectID(), bytes)))
    throw CStoreError("entity " + std::to_string(entity.GetObjectID()) +
                      " has no stored data (not saved yet?)" +
                      (device.LastError().empty() ? "" : ": " + device.LastError()));
  return py::bytes(bytes);
}

py::object Child(SChildren const& self, long long index) {
  CLockedEntity entity(*self.ref);
  auto const& children = entity->GetAllChild();
  auto const count = static_cast<long long>(children.size());
  if (index < 0)
    index += count;
  if (index < 0 || index >= count)
    throw py::index_error("child index out of range");
  return WrapEntity(self.ref->SharedState(), children[static_cast<std::size_t>(index)]);
}

py::list ChildList(SChildren const& self) {
  CLockedEntity entity(*self.ref);
  py::list list;
  for (IBaseEntity* child : entity->GetAllChild())
    list.append(WrapEntity(self.ref->SharedState(), child));
  return list;
}

py::object NextInWalk(SWalk& walk) {
  CProjectLock lock(*walk.state, false);
  if (!walk.state->IsOpen())
    throw std::runtime_error("project is closed");
  if (walk.generation != walk.state->Generation())
    throw std::runtime_error("entities were deleted during the walk");
  if (walk.pending.empty())
    throw py::stop_iteration();
  IBaseEntity* entity = walk.pending.back();
  walk.pending.pop_back();
  auto const& children = entity->GetAllChild();
  walk.pending.insert(walk.pending.end(), children.rbegin(), children.rend());
  return WrapEntity(walk.state, entity);
}

} // namespace

py::object Walk(std::shared_ptr<CProjectState> const& state) {
  CProjectLock lock(*state, false);
  return py::cast(SWalk{state, {&state->Project()}, state->Generation()});
}

void BindTree(py::module_& module) {
  py::class_<SEntity>(module, "Entity", "An entity of an open project.")
      .def_property_readonly(
          "id", [](SEntity const& self) { return CLockedEntity(*self.ref)->GetObjectID(); })
      .def_property_readonly(
          "type", [](SEntity const& self) { return TypeIdOf(*CLockedEntity(*self.ref)); })
      .def_property_readonly("type_name",
                             [](SEntity const& self) {
                               CLockedEntity entity(*self.ref);
                               return TypeNameOf(*self.ref, *entity);
                             })
      .def_property_readonly("parent", &Parent)
      .def_property_readonly("children",
                             [](SEntity const& self) {
                               CLockedEntity entity(*self.ref);
                               return SChildren{self.ref};
                             })
      .def_property_readonly("props",
                             [](SEntity& self) {
                               if (self.props.is_none())
                                 self.props = MakeProps(self.ref);
                               return self.props;
                             })
      .def("add_child", &AddChild, "Adds a new property entity as the last child.")
      .def(
          "remove",
          [](SEntity const& self) {
            CLockedEntity entity(*self.ref);
            entity.Library();
            RemoveEntity(self.ref->State(), *entity);
          },
          "Deletes the entity and its subtree.")
      .def("blob", &Blob, "The bytes the store holds for the entity.")
      .def("__eq__",
           [](SEntity const& self, py::object other) -> py::object {
             if (!py::isinstance<SEntity>(other))
               return py::reinterpret_borrow<py::object>(Py_NotImplemented);
             auto const& ref = *other.cast<SEntity const&>().ref;
             return py::bool_(&ref.State() == &self.ref->State() && ref.Id() == self.ref->Id());
           })
      .def("__hash__", [](SEntity const& self) { return std::hash<long long>()(self.ref->Id()); })
      .def("__repr__", [](SEntity const& self) {
        CLockedEntity entity(*self.ref);
        return "<zrn.Entity " + std::to_string(self.ref->Id()) + " " +
               TypeNameOf(*self.ref, *entity) + ">";
      });

  py::class_<SChildren>(module, "Children", "An entity's children, in order.")
      .def("__len__",
           [](SChildren const& self) { return CLockedEntity(*self.ref)->GetAllChild().size(); })
      .def("__getitem__", &Child)
      .def("__iter__", [](SChildren const& self) { return py::iter(ChildList(self)); })
      .def("__repr__", [](SChildren const& self) { return py::repr(ChildList(self)); });

  py::class_<SWalk>(module, "Walk", "Depth-first iteration over a project's tree.")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", &NextInWalk);
}

} // namespace zrn::python

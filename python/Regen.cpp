// Project.regenerate(): a regeneration pass over a frame, and its result.
#include "Module.h"

#include <pybind11/stl.h>

#include <zrn/Regen/RegenObject.h>

#include <vector>

namespace py = pybind11;

namespace zrn::python {

namespace {

/// zrn.RegenResult: the ids a pass touched, each list in the pass's order.
struct SRegenResult {
  /// The objects that reacted to a change of their own, in propagation order.
  std::vector<unsigned long long> updated;
  /// The objects whose step ran, in run order.
  std::vector<unsigned long long> regenerated;
  /// The objects removed since the previous pass, ascending.
  std::vector<unsigned long long> deleted;
};

} // namespace

py::object Regenerate(CProjectState& state) {
  state.Project(); // raises when closed
  CFrameModel* model = state.Model();
  if (!model)
    throw std::runtime_error("nothing to regenerate: " + state.NoModelReason());
  GRegenContext context;
  {
    py::gil_scoped_release released;
    model->Regenerate(context);
  }
  auto const& deleted = context.GetDeletedIds();
  return py::cast(SRegenResult{model->UpdateOrder(), model->RunOrder(),
                               std::vector<unsigned long long>(deleted.begin(), deleted.end())});
}

void BindRegen(py::module_& module) {
  py::class_<SRegenResult>(module, "RegenResult", "What a regeneration pass did.")
      .def_readonly("updated", &SRegenResult::updated)
      .def_readonly("regenerated", &SRegenResult::regenerated)
      .def_readonly("deleted", &SRegenResult::deleted)
      .def("__repr__", [](SRegenResult const& r) {
        return "<zrn.RegenResult " + std::to_string(r.updated.size()) + " updated, " +
               std::to_string(r.regenerated.size()) + " regenerated, " +
               std::to_string(r.deleted.size()) + " deleted>";
      });
}

} // namespace zrn::python

// What the files of the Python module share: the store facade the module
// installs, and the functions that define each part of the module.
#ifndef ZRN_PYTHON_MODULE_H
#define ZRN_PYTHON_MODULE_H

#include "ProjectState.h"

#include <pybind11/pybind11.h>

#include <zrn/Store/StoreFacade.h>

#include <memory>

namespace zrn::python {

/// The facade every project of the module saves and loads through; the
/// frame classes and the library's entity classes are registered. Use under
/// LibraryMutex() (type lookups excepted).
GStoreFacade& Facade();

/// zrn.open, zrn.create and zrn.Project (Store.cpp).
void BindStore(pybind11::module_& module);
/// zrn.RegenResult (Regen.cpp).
void BindRegen(pybind11::module_& module);
/// zrn.inspect and its result classes (Inspect.cpp).
void BindInspect(pybind11::module_& module);

/// Runs a regeneration pass over `state`'s frame (a zrn.RegenResult);
/// RuntimeError when the project holds no frame. Call under both locks.
pybind11::object Regenerate(CProjectState& state);

/// An iterator over the tree of `state`, depth first in child order.
pybind11::object Walk(std::shared_ptr<CProjectState> const& state);

} // namespace zrn::python

#endif

// The Python module `zrn`: projects in the library's stores, their entities
// and properties, regeneration of the sample host's frames, and archive
// inspection. docs/PYTHON.md describes its API.
#include "Module.h"
#include "Store.h"
#include "Tree.h"
#include "Values.h"

#include <zrn/IO/DataIOFacade.h>
#include <zrn/Version.h>

namespace py = pybind11;

namespace zrn::python {

GStoreFacade& Facade() {
  // Never freed: projects that Python never let go of may outlive every
  // static destructor, and they need the facade to close.
  static GStoreFacade* facade = [] {
    auto* created = new GStoreFacade;
    RegisterFrameTypes(created->Types());
    return created;
  }();
  return *facade;
}

} // namespace zrn::python

PYBIND11_MODULE(zrn, module) {
  using namespace zrn::python;
  module.doc() = "Projects of the zrn library's stores: entities, properties, regeneration "
                 "and archive inspection.";
  module.attr("__version__") = ZRN_VERSION_STRING;
  zrn::SetIOFacade(&Facade());
  py::register_exception<CStoreError>(module, "StoreError", PyExc_RuntimeError);
  BindValues(module);
  BindTree(module);
  BindProps(module);
  BindStore(module);
  BindRegen(module);
  BindInspect(module);
}

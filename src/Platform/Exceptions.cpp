#include "Platform/Exceptions.h"

#include <cstdlib>
#include <memory>

// The compiler's ABI header demangles type names and names the unwinding that
// thread cancellation uses.
#if __has_include(<cxxabi.h>)
#include <cxxabi.h>
#define ZRN_HAS_CXXABI 1
#endif

namespace zrn::platform {

std::string ReadableTypeName(std::type_info const& type) {
#ifdef ZRN_HAS_CXXABI
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  if (status == 0 && name)
    return name.get();
#endif
  return type.name();
}

bool CallCatchingFailure(void (*call)(void*), void* context) {
  try {
    call(context);
    return true;
#ifdef ZRN_HAS_CXXABI
  } catch (abi::__forced_unwind&) {
    throw; // swallowing it would end the process
#endif
  } catch (...) {
    return false;
  }
}

} // namespace zrn::platform

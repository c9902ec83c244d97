// What the library needs to know about the C++ runtime's exceptions and type
// names: the readable name of a class, and the one exception that a
// catch-everything block must let pass (the unwinding of a cancelled thread).
#ifndef ZRN_SRC_PLATFORM_EXCEPTIONS_H
#define ZRN_SRC_PLATFORM_EXCEPTIONS_H

#include <string>
#include <typeinfo>

namespace zrn::platform {

/// The source-level name of `type` ("zrn::IBaseProject"); the compiler's
/// mangled name when it cannot be demangled.
std::string ReadableTypeName(std::type_info const& type);

/// Calls `call(context)`. True when it returned; false when it threw, the
/// exception then being swallowed. The unwinding of a cancelled thread is
/// never swallowed: it goes on, as the runtime requires.
bool CallCatchingFailure(void (*call)(void*), void* context);

} // namespace zrn::platform

#endif // ZRN_SRC_PLATFORM_EXCEPTIONS_H

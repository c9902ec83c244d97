// The library's entry point, called by the platform layer when the library is
// loaded and unloaded and when a thread that used it ends.
#ifndef ZRN_SRC_PROFILE_LIBRARYMAIN_H
#define ZRN_SRC_PROFILE_LIBRARYMAIN_H

namespace zrn::detail {

/// Why DllMain is called.
enum : unsigned long {
  DLL_PROCESS_DETACH = 0,
  DLL_PROCESS_ATTACH = 1,
  DLL_THREAD_ATTACH = 2,
  DLL_THREAD_DETACH = 3,
};

/// Sets up the thread-local slot and the message table on process attach, and
/// frees the calling thread's error parameter stream on detach. Always true.
bool DllMain(void* module, unsigned long reason, void* reserved);

} // namespace zrn::detail

#endif

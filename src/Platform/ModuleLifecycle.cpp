// Load, unload and thread exit: the events that a library entry point
// receives elsewhere. ELF constructors and destructors stand for process
// attach and detach; a thread_local object's destructor stands for thread
// detach. Thread attach needs no work: new threads start with empty slots.
#include "Platform/Platform.h"
#include "Profile/LibraryMain.h"

namespace zrn::platform {
namespace {

struct ThreadExitWatcher {
  ~ThreadExitWatcher() { detail::DllMain(nullptr, detail::DLL_THREAD_DETACH, nullptr); }
};

__attribute__((constructor)) void OnLibraryLoad() {
  detail::DllMain(nullptr, detail::DLL_PROCESS_ATTACH, nullptr);
}

__attribute__((destructor)) void OnLibraryUnload() {
  detail::DllMain(nullptr, detail::DLL_PROCESS_DETACH, nullptr);
}

} // namespace

void WatchThreadExit() {
  // The destructor of a thread_local object is registered on its first use
  // on each thread and runs when that thread ends.
  thread_local ThreadExitWatcher watcher;
  (void)watcher;
}

} // namespace zrn::platform

#include <zrn/Profile/ErrorCode.h>
#include <zrn/System/Debugger.h>
#include <zrn/System/MessageBox.h>

#include "Platform/Platform.h"
#include "Profile/LibraryMain.h"

#include "System/AnnotatedMutex.h"
#include <atomic>

#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>

namespace zrn {

unsigned int g_tlsIndex = platform::kNoThreadSlot;

namespace {

constexpr char kUnknownCode[] = "Can't understand error code";

// Set before the entry point runs, from whether a debugger is attached then.
std::atomic<int> g_nErrorReportMode{IsDebuggerAttached() ? ERROR_REPORT_BREAK
                                                         : ERROR_REPORT_SILENT};

thread_local int t_nErrorCode = err_ok;
thread_local char t_szErrorMessage[kErrorMessageBufferSize];
// Stands in for the slot on threads of a process where none could be had.
thread_local ValistStream* t_pFallbackStream = nullptr;

// Registration normally happens while modules load, before other threads
// read; the lock makes a late registration safe all the same.
struct MessageTable {
  detail::CAnnotatedMutex<std::shared_mutex> mutex;
  std::unordered_map<int, std::string> formats ZRN_GUARDED_BY(mutex);
};

MessageTable& Messages() {
  static auto* const table = new MessageTable;
  return *table;
}

void FillMessageTable() {
  SetErrorMessage(err_ok, "err_ok");
  SetErrorMessage(err_null_pointer, "err_null_pointer:%s");
  SetErrorMessage(err_bad_argument, "err_bad_argument: parameter %d");
  SetErrorMessage(err_failed, "err_failed: %s");
  SetErrorMessage(err_dont_support, "err_dont_support: %s");
}

ValistStream* CurrentStream() {
  if (g_tlsIndex == platform::kNoThreadSlot)
    return t_pFallbackStream;
  return static_cast<ValistStream*>(platform::GetThreadSlot(g_tlsIndex));
}

void StoreStream(ValistStream* stream) {
  if (!platform::SetThreadSlot(g_tlsIndex, stream))
    t_pFallbackStream = stream;
}

void OnProcessAttach() {
  g_tlsIndex = platform::AllocThreadSlot();
  if (g_tlsIndex == platform::kNoThreadSlot)
    ShowMessageBox("TlsAlloc", "TlsAlloc TLS_OUT_OF_INDEXES",
                   MESSAGE_BOX_OK | MESSAGE_BOX_ICON_ERROR);
  else
    platform::SetThreadSlot(g_tlsIndex, nullptr);
  FillMessageTable();
}

} // namespace

ErrorReportMode SetErrorReportMode(ErrorReportMode mode) {
  return static_cast<ErrorReportMode>(g_nErrorReportMode.exchange(mode, std::memory_order_relaxed));
}

int GetError() { return t_nErrorCode; }

void ErrorCode::SetError(int code) {
  t_nErrorCode = code;
  if (code != err_ok && g_nErrorReportMode.load(std::memory_order_relaxed) == ERROR_REPORT_BREAK)
    BreakIntoDebugger();
}

void SetErrorMessage(int code, char const* text) {
  MessageTable& table = Messages();
  detail::CScopedLock lock(table.mutex);
  table.formats[code] = text ? text : "";
}

char const* GetErrorMessage(int code) {
  MessageTable& table = Messages();
  detail::CSharedScopedLock lock(table.mutex);
  const auto found = table.formats.find(code);
  if (found == table.formats.end())
    return kUnknownCode;
  ValistStream& stream = GetErrorParamStream();
  stream.Resolve();
  stream.Format(found->second.c_str(), t_szErrorMessage, sizeof t_szErrorMessage);
  return t_szErrorMessage;
}

char const* GetErrorMessage() { return GetErrorMessage(GetError()); }

ValistStream& GetErrorParamStream() {
  if (ValistStream* stream = CurrentStream())
    return *stream;
  auto* stream = new ValistStream;
  StoreStream(stream);
  platform::WatchThreadExit();
  return *stream;
}

void ReleaseErrorParamStream() {
  ValistStream* stream = CurrentStream();
  if (!stream)
    return;
  StoreStream(nullptr);
  delete stream;
}

namespace detail {

bool DllMain(void* /*module*/, unsigned long reason, void* /*reserved*/) {
  switch (reason) {
  case DLL_PROCESS_ATTACH:
    OnProcessAttach();
    break;
  case DLL_THREAD_ATTACH:
    platform::SetThreadSlot(g_tlsIndex, nullptr);
    break;
  case DLL_THREAD_DETACH:
  case DLL_PROCESS_DETACH:
    ReleaseErrorParamStream();
    break;
  default:
    break;
  }
  return true;
}

} // namespace detail
} // namespace zrn

char const* zrn_err() { return zrn::GetErrorMessage(); }

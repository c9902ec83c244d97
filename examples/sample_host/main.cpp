// A small host of the zrn library: it configures the logger, writes at
// several levels to a log file and to standard output, and reports an error
// through the per-thread error code.
//
// Usage: sample_host [log-file]   (default: sample_host.log)
#include <zrn/zrn.h>

#include <fstream>
#include <iostream>
#include <string>

namespace {

void ConfigureLog(zrn::CLogManager& log, std::wstring const& path) {
  log.SetDebuggerOutput(false);
  log.SetTimeStamp(true);
  log.ShowLineNumber(true);
  log.AppendOuputStream(&std::wcout);
  if (!log.SetOutputFilePath(path))
    std::wcout << L"could not open the log file " << path << L'\n';
}

void LogAtEveryLevel(zrn::CLogManager& log) {
  log.Log(L"sample host started", zrn::LOG_LEVEL_NORMAL);
  log.Log(std::string("narrow text is widened byte by byte"), zrn::LOG_LEVEL_NORMAL);
  log.Log(L"trivial details are shown at the default level", zrn::LOG_LEVEL_TRIVIAL);
  log.Log(L"debug lines are dropped at the default level", zrn::LOG_LEVEL_DEBUG);

  log.PushLogLevel(zrn::LOG_LEVEL_DEBUG);
  log.Log(L"inside a verbose stretch, debug lines are written", zrn::LOG_LEVEL_DEBUG);
  log.PopLogLevel();

  log.PushLogLevel(zrn::LOG_LEVEL_CRITICAL);
  log.Log(L"this normal line is filtered out", zrn::LOG_LEVEL_NORMAL);
  log.Log(L"only critical lines pass now", zrn::LOG_LEVEL_CRITICAL);
  log.PopLogLevel();
}

void ReportAnError(zrn::CLogManager& log) {
  zrn::ErrorCode::Report(zrn::err_bad_argument, 2);
  std::wcout << L"error " << zrn::GetError() << L": " << zrn::GetErrorMessage() << L'\n';

  zrn::SetErrorMessage(100, "could not open '%s' (%d tries)");
  zrn::ErrorCode::Report(100, "model.dat", 3);
  std::wcout << L"error " << zrn::GetError() << L": " << zrn_err() << L'\n';

  try {
    throw zrn::CErrorException(L"the sample host gave up", "examples\\sample_host", __LINE__);
  } catch (zrn::CErrorException const& e) {
    std::wcout << L"caught: " << e.GetDescription() << L'\n';
  }
  zrn::ErrorCode::Clear();
  log.Log(L"sample host finished", zrn::LOG_LEVEL_NORMAL);
}

} // namespace

int main(int argc, char** argv) {
  const std::string path = argc > 1 ? argv[1] : "sample_host.log";
  auto& log = zrn::CSingleton<zrn::CLogManager>::GetInstance();
  ConfigureLog(log, std::wstring(path.begin(), path.end()));
  LogAtEveryLevel(log);
  ReportAnError(log);

  log.RemoveOuputStream(&std::wcout);
  log.SetOutputFilePath(L"");
  std::wcout << L"log file written to " << std::wstring(path.begin(), path.end()) << L'\n';
  return 0;
}

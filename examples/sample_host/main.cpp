// The sample host: a small parametric model-based host on zrn and its
// project store. It builds a steel frame whose values depend on each other
// through regeneration, stores it in SQLite, reloads it, changes a parameter,
// regenerates, saves only what changed, reloads again and checks the values.
// It prints each step in plain words with its time, the orders of the last
// regeneration, the profiler's table and a short memory table, draws the
// model's dependency graph, and bundles every output into one zip.
//
// Exit codes: 0 done, 1 a step failed, 2 bad arguments.
#include "CommandLine.h"
#include "SampleRun.h"
#include "Store.h"

#include <zrn/IO/MemZip.h>
#include <zrn/Profile/GLog/LogManager.h>
#include <zrn/Profile/GLog/Singleton.h>
#include <zrn/Profile/Profiler.h>
#include <zrn/System/CoreSystem.h>
#include <zrn/System/Stopwatch.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <locale>
#include <sstream>
#include <vector>

namespace {

namespace fs = std::filesystem;

int Refuse(std::string const& message) {
  std::fprintf(stderr, "sample_host: %s\nTry sample_host --help.\n", message.c_str());
  return 2;
}

int Fail(std::string const& message) {
  std::fprintf(stderr, "sample_host: %s\n", message.c_str());
  return 1;
}

// The build folder: the executable lives in its examples/ folder.
fs::path DefaultOut() {
  return fs::path(zrn::GCoreSystem::GetExePath()).parent_path().parent_path() / "sample_host_out";
}

void OpenLog(fs::path const& path) {
  auto& log = zrn::CSingleton<zrn::CLogManager>::GetInstance();
  log.SetDebuggerOutput(false);
  log.SetTimeStamp(true);
  if (!log.SetOutputFilePath(path.wstring()))
    std::wcout << L"could not open the log file " << path.wstring() << L'\n';
}

void CloseLog() { zrn::CSingleton<zrn::CLogManager>::GetInstance().SetOutputFilePath(L""); }

// Prints the profiler's table and the memory table, and keeps both in
// `path`.
void Report(fs::path const& path) {
  std::wostringstream tables;
  zrn::CSingleton<zrn::CProfileManager>::GetInstance().DumpProfile(tables);
  zrn::GCoreSystem::DumpSimpleProcessMemory(tables);
  std::wcout << tables.str();
  std::wofstream(path) << tables.str();
}

// Bundles the outputs that exist into one zip and lists what it holds.
bool Bundle(SOptions const& options, fs::path const& zipPath) {
  zrn::CStopwatch watch;
  watch.Start();
  std::vector<std::pair<std::string, fs::path>> const files = {
      {options.db.filename().string(), options.db},
      {"sample_host.log", options.out / "sample_host.log"},
      {"report.txt", options.out / "report.txt"},
      {"model.dot", options.out / "model.dot"},
      {"model.svg", options.out / "model.svg"}};
  zrn::CMemZip zip;
  std::wstring listing;
  for (auto const& [entry, path] : files)
    if (fs::exists(path) && zip.AddFile(entry.c_str(), path.c_str()))
      listing += L' ' + fs::path(entry).wstring();
  if (!zip.FlushToFile(zipPath.c_str()))
    return false;
  watch.Stop();
  std::wcout << L"Bundled into " << zipPath.wstring() << L" (" << fs::file_size(zipPath)
             << L" bytes, " << watch.GetElapsedMilliseconds() << L" ms):" << listing << L'\n';
  return true;
}

} // namespace

int main(int argc, char** argv) {
  std::locale::global(std::locale("C.UTF-8"));
  std::wcout.imbue(std::locale());
  SOptions options;
  std::string error;
  if (!ParseCommandLine(argc, argv, DefaultOut(), options, error))
    return Refuse(error);
  if (options.help) {
    std::string const usage = Usage();
    std::wcout << std::wstring(usage.begin(), usage.end());
    return 0;
  }
  std::error_code status;
  fs::create_directories(options.out, status);
  if (status)
    return Refuse("cannot create the output folder " + options.out.string() + ": " +
                  status.message());
  if (!ClearStore(options.db, error))
    return Refuse(error);

  OpenLog(options.out / "sample_host.log");
  bool ok = false;
  {
    CSampleRun run(options);
    ok = run.Run();
    error = run.Error();
  }
  Report(options.out / "report.txt");
  CloseLog();
  if (!ok)
    return Fail(error);
  if (IsServerStore(options.db))
    std::wcout << L"Closed the connection to " << ShownStore(options.db) << L'\n';
  else
    std::wcout << L"Closed the store: " << (StoreSize(options.db).file + 1023) / 1024
               << L" KB in " << options.db.wstring() << L'\n';
  if (!Bundle(options, options.out / "sample_host.zip"))
    return Fail("could not write " + (options.out / "sample_host.zip").string());
  std::wcout << L"Done: every output is in " << options.out.wstring() << L'\n';
  return 0;
}

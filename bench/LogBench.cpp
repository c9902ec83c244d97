// Log throughput to a file, in lines per second, with a line number and a
// time stamp on every line: CLogManager against spdlog's synchronous file
// sink, from one thread and from two threads writing at once. Both write the
// same 40-character message at a level that passes the filter. Each run opens
// a fresh file in /tmp before timing starts and closes and removes it after.
#include <zrn/Profile/GLog/LogManager.h>

#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

constexpr char kZrnPath[] = "/tmp/zrn_bench_log.log";
constexpr wchar_t kZrnPathW[] = L"/tmp/zrn_bench_log.log";
constexpr char kSpdPath[] = "/tmp/zrn_bench_spdlog.log";
constexpr double kWarmUpSeconds = 0.5;

const std::wstring kWideMessage = L"model step 42 done, 17 bodies integrated";
const std::string kMessage = "model step 42 done, 17 bodies integrated";

zrn::CLogManager& Log() { return zrn::CSingleton<zrn::CLogManager>::GetInstance(); }

void ZrnOpen(benchmark::State const&) {
  Log().SetDebuggerOutput(false);
  Log().SetTimeStamp(true);
  Log().ShowLineNumber(true);
  Log().SetLogLevel(zrn::LOG_LEVEL_NORMAL);
  std::remove(kZrnPath);
  if (!Log().SetOutputFilePath(kZrnPathW))
    std::fprintf(stderr, "cannot open %s\n", kZrnPath);
}

void ZrnClose(benchmark::State const&) {
  Log().SetOutputFilePath(L"");
  std::remove(kZrnPath);
}

void BM_ZrnLogFile(benchmark::State& state) {
  auto& log = Log();
  for (auto _ : state)
    log.Log(kWideMessage, zrn::LOG_LEVEL_NORMAL);
  state.SetItemsProcessed(state.iterations());
}

// spdlog keeps no line counter: %6i (microseconds since the previous line)
// stands in for our right-aligned line number, so both format a 6-wide number.
std::shared_ptr<spdlog::logger> g_spdLogger;

void SpdOpen(benchmark::State const&) {
  g_spdLogger = spdlog::basic_logger_mt("bench", kSpdPath, true);
  g_spdLogger->set_pattern("%6i [%H:%M:%S] - [%l]: %v");
  g_spdLogger->set_level(spdlog::level::info);
}

void SpdClose(benchmark::State const&) {
  spdlog::drop("bench");
  g_spdLogger.reset(); // the sink closes its file here
  std::remove(kSpdPath);
}

void BM_SpdlogFile(benchmark::State& state) {
  spdlog::logger& log = *g_spdLogger;
  for (auto _ : state)
    log.info(kMessage);
  state.SetItemsProcessed(state.iterations());
}

// Real time, so that items per second is the combined wall-clock rate of all
// threads rather than the rate per CPU second.
BENCHMARK(BM_ZrnLogFile)
    ->Setup(ZrnOpen)
    ->Teardown(ZrnClose)
    ->MinWarmUpTime(kWarmUpSeconds)
    ->UseRealTime()
    ->Threads(1)
    ->Threads(2);
BENCHMARK(BM_SpdlogFile)
    ->Setup(SpdOpen)
    ->Teardown(SpdClose)
    ->MinWarmUpTime(kWarmUpSeconds)
    ->UseRealTime()
    ->Threads(1)
    ->Threads(2);

} // namespace

BENCHMARK_MAIN();

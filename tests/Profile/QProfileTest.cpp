// The call-tree profiler keeps process-wide state and writes its summary once
// per process, so every test runs its body in a child process. A failed check
// in the child ends it with code 1 and says why on standard error.
#include <zrn/Profile/QProfile.h>
#include <zrn/System/CoreSystem.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

namespace {

#define CHILD_CHECK(condition)                                                                     \
  do {                                                                                             \
    if (!(condition)) {                                                                            \
      std::fprintf(stderr, "line %d: %s\n", __LINE__, #condition);                                 \
      std::_Exit(1);                                                                               \
    }                                                                                              \
  } while (0)

template <class Body> void InChild(Body body) {
  EXPECT_EXIT(
      {
        body();
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}

std::filesystem::path ReportFile() {
  return std::filesystem::path(zrn::GCoreSystem::GetExePath()) / "QProfile.txt";
}

std::string ReadAll(std::filesystem::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), {});
}

std::vector<std::string> Lines(std::string const& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    CHILD_CHECK(!line.empty() && line.back() == '\r');
    line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

bool Matches(std::string const& text, char const* pattern) {
  const bool ok = std::regex_match(text, std::regex(pattern));
  if (!ok)
    std::fprintf(stderr, "'%s' !~ '%s'\n", text.c_str(), pattern);
  return ok;
}

// Committed memory that the test sets, in place of the process's own.
zrn::sProcessMemoryCounters g_counters;
bool FakeCounters(zrn::sProcessMemoryCounters& counters) {
  counters = g_counters;
  return true;
}

class QProfileTest : public ::testing::Test {
protected:
  void SetUp() override { std::filesystem::remove(ReportFile()); }
  void TearDown() override { std::filesystem::remove(ReportFile()); }
};

void Recurse(QProfile& profile, int depth) {
  QProfileStarter run(&profile);
  if (depth > 1)
    Recurse(profile, depth - 1);
}

TEST_F(QProfileTest, RecursionCountsHitsButTimesOnlyTheOutermostRun) {
  InChild([&] {
    QProfile profile("recursive", false, __FILE__, __LINE__);
    Recurse(profile, 3);
    CHILD_CHECK(profile.GetHits() == 3);
    CHILD_CHECK(profile.GetTotalTicks() == profile.GetMaxTicks());
    CHILD_CHECK(profile.GetMinTicks() <= profile.GetMaxTicks());
    CHILD_CHECK(profile.GetCaller() == &profile);
    Recurse(profile, 1);
    CHILD_CHECK(profile.GetHits() == 4);
    long long frequency = 0;
    GetCPUFreq(frequency);
    CHILD_CHECK(frequency == 1000000000);
  });
}

TEST_F(QProfileTest, CallerMarksAndStartStop) {
  InChild([&] {
    QProfile a("a", false, "", 0), b("b", false, "", 0), shared("shared", false, "", 0),
        single("single", false, "", 0);
    {
      QProfileStarter runA(&a);
      { QProfileStarter run(&shared); }
      { QProfileStarter run(&single); }
    }
    {
      QProfileStarter runB(&b);
      QProfileStarter run(&shared);
    }
    CHILD_CHECK(shared.GetCaller() == reinterpret_cast<QProfile*>(1));
    CHILD_CHECK(single.GetCaller() == &a);
    CHILD_CHECK(a.GetCaller() == nullptr);
    CHILD_CHECK(a.GetChildTicks() >= shared.GetMaxTicks());

    a.Start();
    a.Start();
    CHILD_CHECK(a.IsRunning());
    a.Stop();
    a.Stop();
    a.Stop(); // not running: ignored
    CHILD_CHECK(!a.IsRunning() && a.GetHits() == 3);
    a.Reset();
    CHILD_CHECK(a.GetHits() == 0 && a.GetTotalTicks() == 0 && a.GetCaller() == nullptr);
  });
}

TEST_F(QProfileTest, SummaryRowsOnStandardOutputAndInTheFile) {
  const std::filesystem::path captured = ReportFile().string() + ".stdout";
  InChild([&] {
    CHILD_CHECK(std::freopen(captured.c_str(), "wb", stdout));
    QProfile outer("outer", false, "", 0), inner("inner", false, "", 0),
        never("never", false, "", 0);
    {
      QProfileStarter run(&outer);
      QProfileStarter nested(&inner);
    }
    QProfile::PrintSummary();
    QProfile::PrintSummary(); // once per process
    std::fflush(stdout);
    const std::string file = ReadAll(ReportFile());
    CHILD_CHECK(ReadAll(captured) == file + "\r\n");
    const auto lines = Lines(file);
    const std::string rule(54, '-');
    CHILD_CHECK(lines.size() == 11);
    CHILD_CHECK(lines[0].empty());
    CHILD_CHECK(lines[1] == "----------------- Profiling  results -----------------");
    CHILD_CHECK(Matches(lines[2], R"(Date: \d\d\.\d\d\.\d{4}, Time: \d\d:\d\d\.\d\d)"));
    CHILD_CHECK(lines[3] == rule && lines[5] == rule && lines[10] == rule);
    CHILD_CHECK(lines[4] == "|-Child|Total |  Hits  |Time/call |   MIN   |   MAX   | Function    ");
    CHILD_CHECK(Matches(
        lines[6],
        R"(\|100\.00\|      \|       1\| +\d+\.\d{5}\|    0\.000\|    0\.000\|Total time-{40})"));
    CHILD_CHECK(Matches(
        lines[7],
        R"(\| *\d+\.\d\d\| *\d+\.\d\d\|       1\| +\d+\.\d{5}\| +\d+\.\d{3}\| +\d+\.\d{3}\|outer-{45})"));
    CHILD_CHECK(Matches(
        lines[8],
        R"(\| *\d+\.\d\d\|      \|       1\| +\d+\.\d{5}\| +\d+\.\d{3}\| +\d+\.\d{3}\|inner-{45}\|\d+\.\d% of outer)"));
    CHILD_CHECK(Matches(
        lines[9],
        R"(\|  0\.00\|      \|       0\|     0\.00000\|    0\.000\|    0\.000\|never-{45})"));
  });
  std::filesystem::remove(captured);
}

TEST_F(QProfileTest, MemoryCheckpointsAndTheirLimit) {
  InChild([&] {
    zrn::SetProcessMemorySource({&FakeCounters, nullptr});
    g_counters.PagefileUsage = 1 << 20;
    CHILD_CHECK(QPAddMemoryStatus("start") == 1);
    g_counters.PagefileUsage = 3 << 20;
    CHILD_CHECK(QPAddMemoryStatus("loaded") == 1);
    CHILD_CHECK(QPMemoryDiffent("loaded", "start") == 2.0);
    CHILD_CHECK(QPMemoryDiffent("loaded", "never recorded") == 0.0);
    for (int i = 2; i < 1024; ++i)
      CHILD_CHECK(QPAddMemoryStatus("filler") == 1);
    CHILD_CHECK(QPAddMemoryStatus("one too many") == 0);
    CHILD_CHECK(QPMemoryDiffent("one too many", "start") == 0.0);

    CHILD_CHECK(std::freopen("/dev/null", "wb", stdout));
    QProfile::PrintSummary();
    const std::string file = ReadAll(ReportFile());
    const auto at = file.find("----------------- memory  status -----------------\r\n"
                              "|used/M|Inc/M | time Tag ---------------------------------\r\n"
                              "|  1.00|  1.00| start\r\n"
                              "|  3.00|  2.00| loaded\r\n"
                              "|  3.00|  0.00| filler\r\n");
    CHILD_CHECK(at != std::string::npos);
    CHILD_CHECK(file.find("one too many") == std::string::npos);
  });
}

TEST_F(QProfileTest, LargeReportFilesAreEmptiedSmallOnesAppendedTo) {
  for (const std::size_t size : {std::size_t{102400}, std::size_t{102399}}) {
    std::ofstream(ReportFile(), std::ios::binary) << std::string(size, 'x');
    InChild([&] {
      CHILD_CHECK(std::freopen("/dev/null", "wb", stdout));
      QProfile::PrintSummary();
    });
    const std::string file = ReadAll(ReportFile());
    if (size == 102400) {
      EXPECT_EQ(file.find('x'), std::string::npos);
    } else {
      EXPECT_EQ(file.find_first_not_of('x'), size);
    }
    EXPECT_NE(file.find("Total time"), std::string::npos);
  }
}

TEST_F(QProfileTest, DestroyingAProfileWritesTheSummaryAndReleasesOwnedOnes) {
  InChild([&] {
    auto* owned = new QProfile("owned", true, "", 0);
    auto* ownedToo = new QProfile("owned too", true, "", 0);
    { QProfileStarter run(owned); }
    CHILD_CHECK(std::freopen("/dev/null", "wb", stdout));
    delete ownedToo; // writes the summary, which releases "owned" but not this one again
    const std::string file = ReadAll(ReportFile());
    CHILD_CHECK(file.find("owned too") != std::string::npos);
    {
      QProfile late("late", false, "", 0); // after the summary: never reported
      QProfileStarter run(&late);
    }
    CHILD_CHECK(ReadAll(ReportFile()) == file);
  });
}

// The tick counter may be read through the time-stamp counter, scaled to
// CLOCK_MONOTONIC (steady_clock) once it is calibrated a few milliseconds
// after the first read; ZRN_PLAIN_CLOCK=1 forces clock_gettime (a second run
// of this test sets it). Across the switch and after it, a later tick is never
// smaller, and a 50 ms span agrees with steady_clock within 5% plus 2 ms.
TEST_F(QProfileTest, TicksNeverGoBackAndFollowTheMonotonicClock) {
  using Clock = std::chrono::steady_clock;
  const auto nanoseconds = [](Clock::duration d) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(d).count();
  };
  InChild([&] {
    CHILD_CHECK(std::freopen("/dev/null", "wb", stdout));
    QProfile pairs("pairs", false, "", 0), span("span", false, "", 0);
    for (const auto until = Clock::now() + std::chrono::milliseconds(20); Clock::now() < until;) {
      QProfileStarter run(&pairs);
    }
    CHILD_CHECK(pairs.GetHits() > 0 && pairs.GetMinTicks() >= 0);

    const auto outerStart = Clock::now();
    span.Start();
    const auto innerStart = Clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const auto innerEnd = Clock::now();
    span.Stop();
    const long long outer = nanoseconds(Clock::now() - outerStart);
    const long long inner = nanoseconds(innerEnd - innerStart);
    const long long ticks = span.GetTotalTicks();
    if (ticks < inner * 95 / 100 - 2000000 || ticks > outer * 105 / 100 + 2000000) {
      std::fprintf(stderr, "%lld ticks for %lld..%lld ns\n", ticks, inner, outer);
      std::_Exit(1);
    }
  });
}

} // namespace

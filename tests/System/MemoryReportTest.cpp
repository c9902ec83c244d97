#include <zrn/System/CoreSystem.h>

#include "Support/LogCapture.h"
#include "Support/TextLines.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace zrn {
namespace {

// Known counters in place of the process's own for the lifetime of the
// object.
class FakeMemory {
public:
  FakeMemory(bool countersReadable, std::uint64_t heapBytes) {
    s_bReadable = countersReadable;
    s_nHeap = heapBytes;
    m_previous = SetProcessMemorySource({&Counters, &Heap});
  }
  ~FakeMemory() { SetProcessMemorySource(m_previous); }

  static sProcessMemoryCounters s_counters;

private:
  static bool Counters(sProcessMemoryCounters& out) {
    out = s_counters;
    return s_bReadable;
  }
  static bool Heap(std::uint64_t& bytes) {
    bytes = s_nHeap;
    return true;
  }
  static inline bool s_bReadable = true;
  static inline std::uint64_t s_nHeap = 0;
  sProcessMemorySource m_previous;
};

sProcessMemoryCounters FakeMemory::s_counters = {7,      2048, 1536, 123456789, 0,
                                                 512000, 1024, 1023, 4096};

using zrn::test::Lines;

std::wstring Row(std::wstring const& label, std::wstring const& value) {
  return std::wstring(50 - label.size(), L' ') + label + L"|" +
         std::wstring(20 - value.size(), L' ') + value;
}

const std::wstring kTitle =
    std::wstring(36, L'-') + L"Dumping Process Memory (KB)" + std::wstring(37, L'-');
const std::wstring kHeading =
    std::wstring(20, L' ') + L"Item Name" + std::wstring(21, L' ') + L"|     Size In KB     |";

TEST(ProcessMemory, FullTableGeometryAndValues) {
  FakeMemory fake(true, 0);
  std::wostringstream out;
  GCoreSystem::DumpProcessMemory(out);
  const std::vector<std::wstring> expected = {
      kTitle,
      kHeading,
      std::wstring(100, L'-'),
      Row(L"PageFaultCount", L"7"),
      Row(L"PeakWorkingSetSize", L"2.00"),
      Row(L"WorkingSetSize", L"1.50"),
      Row(L"QuotaPeakPagedPoolUsage", L"120563.27"), // 120563.2705...
      Row(L"QuotaPagedPoolUsage", L"0.00"),
      Row(L"QuotaPeakNonPagedPoolUsage", L"500.00"),
      Row(L"QuotaNonPagedPoolUsage", L"1.00"),
      Row(L"PagefileUsage", L"0.99"), // 0.999..., cut not rounded
      Row(L"PeakPagefileUsage", L"4.00"),
      std::wstring(100, L'-'),
      L""};
  EXPECT_EQ(Lines(out.str()), expected);
  EXPECT_EQ(kTitle.size(), 100u);
  EXPECT_EQ(kHeading.size(), 72u);
  EXPECT_EQ(Row(L"x", L"1").size(), 71u);
  EXPECT_EQ(GCoreSystem::GetWorkingSetKB(), 1u);
}

TEST(ProcessMemory, ShortTableEndsWithTheHeapTotal) {
  FakeMemory fake(true, 5 * 1024 + 1023);
  std::wostringstream out;
  GCoreSystem::DumpSimpleProcessMemory(out);
  const std::vector<std::wstring> expected = {kTitle,
                                              kHeading,
                                              std::wstring(100, L'-'),
                                              Row(L"PageFaultCount", L"7"),
                                              Row(L"PeakWorkingSetSize", L"2.00"),
                                              Row(L"WorkingSetSize", L"1.50"),
                                              std::wstring(75, L'-'),
                                              Row(L"Total Allocated Heap Size", L"5"),
                                              std::wstring(100, L'-'),
                                              L""};
  EXPECT_EQ(Lines(out.str()), expected);
  EXPECT_EQ(GCoreSystem::GetAllocatedHeapKB(), 5u);
}

TEST(ProcessMemory, UnreadableCountersGiveNoTableAndZero) {
  FakeMemory fake(false, 0);
  std::wostringstream out;
  GCoreSystem::DumpProcessMemory(out);
  GCoreSystem::DumpSimpleProcessMemory(out);
  EXPECT_TRUE(out.str().empty());
  EXPECT_EQ(GCoreSystem::GetWorkingSetKB(), 0u);
}

TEST(ProcessMemory, LoggingFormWritesTheFullTableAtNormalLevel) {
  FakeMemory fake(true, 0);
  test::LogCapture log;
  GCoreSystem::DumpProcessMemory();
  const std::vector<std::wstring> lines = Lines(log.Text());
  ASSERT_EQ(lines.size(), 15u); // the table's 14 lines and the log's own line end
  EXPECT_EQ(lines[0], L"[NORMAL]: " + kTitle);
  EXPECT_EQ(lines[4], Row(L"PeakWorkingSetSize", L"2.00"));
}

TEST(ProcessMemory, TheSystemsOwnCountersAreReadable) {
  sProcessMemoryCounters counters;
  ASSERT_TRUE(ReadProcessMemoryCounters(counters));
  EXPECT_GT(counters.WorkingSetSize, 0u);
  EXPECT_GE(counters.PeakWorkingSetSize, counters.WorkingSetSize);
  EXPECT_GE(counters.PeakPagefileUsage, counters.PagefileUsage);
  EXPECT_EQ(counters.QuotaPagedPoolUsage, 0u);
  EXPECT_GT(GCoreSystem::GetWorkingSetKB(), 0u);
}

} // namespace
} // namespace zrn

#include <zrn/System/CoreSystem.h>

#include "Platform/Platform.h"
#include "System/TextCells.h"

#include <zrn/Profile/GLog/LogManager.h>

#include <atomic>
#include <sstream>

namespace zrn {
namespace {

constexpr std::size_t kLabelWidth = 50;
constexpr std::size_t kValueWidth = 20;
constexpr std::size_t kTableWidth = 100;
constexpr std::size_t kHeapRuleWidth = 75;

std::atomic<bool (*)(sProcessMemoryCounters&)> g_pReadCounters{nullptr};
std::atomic<bool (*)(std::uint64_t&)> g_pReadHeap{nullptr};

// 0 when the heap cannot be read.
std::uint64_t HeapInUseKB() {
  auto read = g_pReadHeap.load(std::memory_order_acquire);
  std::uint64_t bytes = 0;
  if (!(read ? read(bytes) : platform::ReadHeapInUse(bytes)))
    return 0;
  return bytes / 1024;
}

using Stream = std::basic_ostream<wchar_t>;

void Rule(Stream& out, std::size_t width) { out << std::wstring(width, L'-') << std::endl; }

void Row(Stream& out, wchar_t const* label, std::wstring const& value) {
  out << detail::RightCell(label, kLabelWidth) << L'|' << detail::RightCell(value, kValueWidth)
      << std::endl;
}

void BytesRow(Stream& out, wchar_t const* label, std::uint64_t bytes) {
  Row(out, label, detail::TwoDecimals(static_cast<double>(bytes) * 0.0009765625));
}

void CountRow(Stream& out, wchar_t const* label, std::uint64_t count) {
  Row(out, label, std::to_wstring(count));
}

void Heading(Stream& out) {
  out << detail::CentredCell(L"Dumping Process Memory (KB)", kTableWidth, L'-') << std::endl;
  out << detail::CentredCell(L"Item Name", kLabelWidth, L' ') << L'|'
      << detail::CentredCell(L"Size In KB", kValueWidth, L' ') << L'|' << std::endl;
  Rule(out, kTableWidth);
}

void WorkingSetRows(Stream& out, sProcessMemoryCounters const& c) {
  CountRow(out, L"PageFaultCount", c.PageFaultCount);
  BytesRow(out, L"PeakWorkingSetSize", c.PeakWorkingSetSize);
  BytesRow(out, L"WorkingSetSize", c.WorkingSetSize);
}

void Ending(Stream& out) {
  Rule(out, kTableWidth);
  out << std::endl;
}

} // namespace

bool ReadProcessMemoryCounters(sProcessMemoryCounters& counters) {
  auto read = g_pReadCounters.load(std::memory_order_acquire);
  return read ? read(counters) : platform::ReadProcessMemoryCounters(counters);
}

sProcessMemorySource SetProcessMemorySource(sProcessMemorySource source) {
  sProcessMemorySource previous;
  previous.ReadCounters = g_pReadCounters.exchange(source.ReadCounters);
  previous.ReadHeapInUse = g_pReadHeap.exchange(source.ReadHeapInUse);
  return previous;
}

std::uint64_t GCoreSystem::GetWorkingSetKB() {
  sProcessMemoryCounters counters;
  return ReadProcessMemoryCounters(counters) ? counters.WorkingSetSize / 1024 : 0;
}

std::uint64_t GCoreSystem::GetAllocatedHeapKB() { return HeapInUseKB(); }

void GCoreSystem::DumpProcessMemory(std::basic_ostream<wchar_t>& out) {
  sProcessMemoryCounters c;
  if (!ReadProcessMemoryCounters(c))
    return;
  Heading(out);
  WorkingSetRows(out, c);
  BytesRow(out, L"QuotaPeakPagedPoolUsage", c.QuotaPeakPagedPoolUsage);
  BytesRow(out, L"QuotaPagedPoolUsage", c.QuotaPagedPoolUsage);
  BytesRow(out, L"QuotaPeakNonPagedPoolUsage", c.QuotaPeakNonPagedPoolUsage);
  BytesRow(out, L"QuotaNonPagedPoolUsage", c.QuotaNonPagedPoolUsage);
  BytesRow(out, L"PagefileUsage", c.PagefileUsage);
  BytesRow(out, L"PeakPagefileUsage", c.PeakPagefileUsage);
  Ending(out);
}

void GCoreSystem::DumpSimpleProcessMemory(std::basic_ostream<wchar_t>& out) {
  const std::uint64_t heapKB = HeapInUseKB();
  sProcessMemoryCounters c;
  if (!ReadProcessMemoryCounters(c))
    return;
  Heading(out);
  WorkingSetRows(out, c);
  Rule(out, kHeapRuleWidth);
  CountRow(out, L"Total Allocated Heap Size", heapKB);
  Ending(out);
}

void GCoreSystem::DumpProcessMemory() {
  std::wostringstream table;
  DumpProcessMemory(table);
  CSingleton<CLogManager>::GetInstance().Log(table.str(), LOG_LEVEL_NORMAL);
}

} // namespace zrn

// The call-tree profiler: ticks per named code region, with which region ran
// which, summarised once per process on standard output and in
// "QProfile.txt" beside the executable.
//
//   void Solve() {
//     static QProfile profile("Solve", false, __FILE__, __LINE__);
//     QProfileStarter run(&profile);   // charges this run to the region
//     ...
//   }
//
// Ticks come from the monotonic clock in nanoseconds (GetCPUFreq gives
// 10^9). A root profile "Total time" times the whole run. The summary is
// written by the first of: an explicit QProfile::PrintSummary, the
// destruction of a profile while another besides the root exists, the
// library's unload. After it, starters stop accounting.
#ifndef ZRN_PROFILE_QPROFILE_H
#define ZRN_PROFILE_QPROFILE_H

#include <zrn/Export.h>

#include <cstdint>

/// One code region's counters, linked into the process-wide list of profiles
/// (newest first, the root last).
///
/// Not synchronised: a profile is charged from one thread at a time, and the
/// summary is written while no region runs. `caller` holds the several-callers
/// mark 1 when the region ran inside more than one region.
class ZRN_API QProfile {
public:
  /// Inserts the profile at the head of the list and restarts the root
  /// profile if it is not running. `name` and `file` are kept by pointer.
  /// An `owned` profile is deleted by the summary, so it must come from new.
  QProfile(char const* name, bool owned, char const* file, int line);
  /// Writes the summary when another profile besides the root exists.
  ~QProfile();
  QProfile(QProfile const&) = delete;
  /// Copies every field but the list link, so that both stay in the list.
  QProfile& operator=(QProfile const& other);

  /// Starts a run; nested starts only count.
  void Start();
  /// Ends a run: one hit; only the outermost stop adds time.
  void Stop();
  bool IsRunning() const;
  /// Clears the times, hits, run depth and extremes; keeps child time,
  /// caller and the printed mark.
  void Reset();

  /// Writes the summary once per process and releases owned profiles.
  static void PrintSummary();
  /// Writes the memory checkpoint table (nothing when it is empty).
  static void PrintMemorySummary();

  char const* GetName() const { return name; }
  long long GetHits() const { return hits; }
  long long GetTotalTicks() const { return totalTicks; }
  long long GetChildTicks() const { return childTicks; }
  long long GetMinTicks() const { return minTicks; }
  long long GetMaxTicks() const { return maxTicks; }
  /// The region that ran this one, null, or the several-callers mark.
  QProfile const* GetCaller() const { return caller; }

private:
  friend class QProfileStarter;
  struct RootTag {};
  explicit QProfile(RootTag);

  /// The summary, skipping `dying` (a profile being destroyed) when owned
  /// profiles are released.
  static void Summarise(QProfile const* dying);
  static QProfile s_root;

  void Add(long long const& ticks, long long const& children);
  double ElapsedInMS() const;
  void PrintReport(int indent);
  static void Out(char const* text, bool closeAfter, char const* unused);

  bool owned;
  long long totalTicks;
  long long childTicks;
  long long startTick;
  long long maxTicks;
  long long minTicks;
  long long hits;
  QProfile* next;
  std::uint32_t runDepth;
  std::uint32_t starterDepth;
  QProfile* caller;
  bool printed;
  char const* file;
  int line;
  char const* name;
};

/// Charges one run of a region to its profile for the lifetime of the
/// object, and records which region ran it. Starters nest per thread; destroy
/// them on the creating thread in reverse order of creation.
class ZRN_API QProfileStarter {
public:
  explicit QProfileStarter(QProfile* profile);
  ~QProfileStarter();
  QProfileStarter(QProfileStarter const&) = delete;
  QProfileStarter& operator=(QProfileStarter const&) = delete;

private:
  QProfileStarter* RecursiveCallFrom();

  QProfile* profile;
  QProfileStarter* previous;
  long long startTick;
  long long childTicks;
};

/// The tick frequency: 10^9 (nanoseconds of the monotonic clock).
ZRN_API void GetCPUFreq(long long& frequency);

/// Records the committed memory in MiB under `label` (kept by pointer): 1, or
/// 0 when the table already holds 1024 checkpoints. Thread-safe.
ZRN_API int QPAddMemoryStatus(char const* label);

/// The memory of the first checkpoint labelled `a` minus that of the first
/// labelled `b`, in MiB; 0.0 when either is missing. Thread-safe.
ZRN_API double QPMemoryDiffent(char const* a, char const* b);

#endif // ZRN_PROFILE_QPROFILE_H

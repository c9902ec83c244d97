// The hierarchical profiler: named sections of code timed in milliseconds,
// nested as the code nests them, one tree per thread.
//
//   void Regenerate() {
//     zrn::CProfile scope(L"Regenerate");   // opens a section until the scope ends
//     ...
//   }
//   zrn::CSingleton<zrn::CProfileManager>::GetInstance().DumpProfile(std::wcout);
//
// Closing an outermost section ends a frame: the frame's times are folded into
// running totals and per-frame ratios. Results are read as two cached texts
// (titles and values, for an on-screen display) or written as a fixed-width
// table of 140 characters.
#ifndef ZRN_PROFILE_PROFILER_H
#define ZRN_PROFILE_PROFILER_H

#include <zrn/Export.h>
#include <zrn/Profile/GLog/Singleton.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zrn {

class CProfiler;

/// One section of a thread's tree. A node owns its children and deletes them
/// when it is destroyed; a copy owns a copy of the whole subtree.
///
/// Times are milliseconds. `minTime` holds 100000000 until a completion has
/// been seen. Nodes belong to one thread's profiler and are not synchronised.
class ZRN_API CProfileInstance {
public:
  CProfileInstance(CProfileInstance const& other);
  CProfileInstance& operator=(CProfileInstance const& other);
  ~CProfileInstance();

  /// The first child, in creation order, named exactly `name`; null if none.
  CProfileInstance* FindChild(std::wstring const& name) const;
  /// Appends `child`, which now belongs to this node.
  void AddChild(CProfileInstance* child);
  /// Starts counting frame `frame` afresh.
  void BeginFrame(std::uint64_t frame);
  /// Counts one completion that took `elapsed` milliseconds.
  void EndFrame(std::uint64_t elapsed);

  CProfileInstance* parent;
  std::vector<CProfileInstance*> children;
  std::wstring name;
  std::uint64_t frameId;
  std::uint32_t depth;
  std::int64_t startTime;
  std::int64_t endTime;
  std::uint64_t frameTime;
  std::uint64_t frameCalls;
  double frameRatio;
  std::uint64_t lastFrameTime;
  std::uint64_t maxTime;
  std::uint64_t minTime;
  std::uint64_t lastFrameCalls;
  double totalRatio;
  std::uint64_t totalTime;
  std::uint64_t totalCalls;
  bool inFrame;

protected:
  friend class CProfiler;

  /// The root of a tree: no parent, no name, depth 0.
  CProfileInstance();
  CProfileInstance(CProfileInstance* parent, std::wstring_view name, std::uint64_t frame,
                   std::uint32_t depth);

private:
  CProfileInstance* FindChildView(std::wstring_view name) const;
  void CopyCountersFrom(CProfileInstance const& other);
  void CopySubtreeFrom(CProfileInstance const& other);
  void DeleteSubtree();
};

/// One thread's tree of sections and its frame logic.
///
/// Idle while `current` is the root; opening a section at idle starts a
/// frame, closing the outermost one ends it. Used by one thread at a time;
/// writing the table takes the profile lock.
class ZRN_API CProfiler {
public:
  CProfiler();
  CProfiler(CProfiler const& other);
  CProfiler& operator=(CProfiler const& other);
  ~CProfiler();

  /// Opens the section `name` inside the innermost open one.
  void BeginProfile(std::wstring const& name);
  void BeginProfile(wchar_t const* name);
  /// Closes the innermost open section; the name is not consulted. Does
  /// nothing when no section is open.
  void EndProfile(std::wstring const& name = std::wstring());
  /// Clears the tree now, or when the outermost open section closes.
  void ResetProfile();

  /// "Time Profile:" and one line per node: indent, name, calls of the last
  /// frame in parentheses.
  std::wstring const& GetTitlesStr();
  /// One line per node, matching the titles: last frame's time and, below the
  /// top level, the share of the parent in percent.
  std::wstring const& GetValueStr();
  /// The root node; its children are the top-level sections.
  CProfileInstance const* GetRootInstance() const;

  /// Writes the result table; false, writing nothing, for a stream that is
  /// not good.
  bool LogProfileResult(std::basic_ostream<wchar_t>& out);
  /// Appends the result table to the file at `path` (UTF-8); false when the
  /// file cannot be opened or written.
  bool LogProfileResult(std::wstring const& path);

protected:
  void ForceReset();
  void ResetFrameData(CProfileInstance* node);
  void ProcessFrameStats(CProfileInstance* node);
  void ProcessFrameStats();
  void UpdateStatistic();

private:
  void Open(std::wstring_view name);
  template <class Visit>
  static void WalkSubtree(CProfileInstance* top, std::vector<CProfileInstance*>& stack,
                          Visit visit);
  void WriteRows(std::wstring& text);

  CProfileInstance* current;
  CProfileInstance root;
  bool resetRequested;
  std::uint64_t frameCounter;
  std::wstring titles;
  std::wstring values;
  bool statsValid;
  // Reused by the owning thread's walks, so that ending a frame allocates
  // nothing.
  std::vector<CProfileInstance*> m_vecWalk;
};

class CProfileManager;
extern template class ZRN_API CSingleton<CProfileManager>;

/// Keeps one profiler per thread, created on the thread's first call and
/// kept until the manager is destroyed.
///
/// Thread-safety: the table and the writing of results are guarded by the
/// process-wide profile lock; each thread's section calls touch only its own
/// profiler. Dump while other threads are not inside profiled sections.
class ZRN_API CProfileManager : public CSingleton<CProfileManager> {
public:
  CProfileManager();
  ~CProfileManager() override;

  /// These forward to the calling thread's profiler.
  void BeginProfile(std::wstring const& name);
  void EndProfile(std::wstring const& name);
  void ResetProfile();
  std::wstring const& GetTitlesStr();
  std::wstring const& GetValueStr();
  CProfileInstance const* GetRootInstance();

  /// For every thread: a header "Thread: <id>" centred in 30 with "-", then
  /// its table. Always true.
  bool DumpProfile(std::basic_ostream<wchar_t>& out);
  /// Appends every thread's tables to the file at `path` (UTF-8); false when
  /// the file cannot be opened or written.
  bool DumpProfile(std::wstring const& path);

private:
  friend class CProfile;

  CProfiler& GetCurrentThreadProfiler();
  /// The calling thread's identifier in lower-case hexadecimal, or
  /// "{Not-any-thread}".
  std::wstring GetTheadIdString();

  std::unordered_map<std::wstring, CProfiler*> m_mapProfilers;
  // Tells this manager apart from one that lived at the same address, for the
  // per-thread cache of the profiler.
  std::uint64_t m_nSerial;
};

/// A scoped section of the calling thread's profiler: opened by the
/// constructor, closed by the destructor. Destroy on the creating thread, in
/// reverse order of creation.
class ZRN_API CProfile {
public:
  explicit CProfile(std::wstring const& name);
  explicit CProfile(wchar_t const* name);
  ~CProfile();
  CProfile(CProfile const&) = delete;
  CProfile& operator=(CProfile const&) = delete;

private:
  // The profiler the section was opened on; closing does not need the name.
  CProfiler* m_pProfiler;
};

/// The millisecond clock the profilers read; 32-bit values widened with their
/// sign.
using ProfileClock = long (*)();

/// Installs `clock` in place of CStopwatch::GetTickCount (null restores it)
/// and returns the previous one. Meant for tests. Thread-safe.
ZRN_API ProfileClock SetProfileClock(ProfileClock clock);

} // namespace zrn

#endif // ZRN_PROFILE_PROFILER_H

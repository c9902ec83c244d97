// The SQLite project store next to bare SQLite doing the same row work, in
// one run, on a tree of 100 001 entities (a project, 1 000 assemblies of 99
// parts each; every assembly and part has 100 bytes of impl data):
//
//   Sqlite_Insert / Store_Save    a full save into a fresh file: open, create
//                                 the tables, write every row in one
//                                 transaction, close
//   Sqlite_Select / Store_Load    every row read back (bare SQLite: every
//                                 column, blob included, in one transaction);
//                                 the store builds the tree with every impl
//                                 read (Eager) or left swapped out (Lazy)
//   Sqlite_Update / Store_SaveChanged
//                                 1% of the entities changed, then saved: at
//                                 random (fixed seed), or a contiguous block
//                                 of ten neighbouring assemblies with their
//                                 parts, as a parameter change regenerates
//                                 them; bare SQLite runs UPDATE ... SET Data
//                                 on the same rows in one transaction
//
// Both sides use journal_mode=WAL and synchronous=NORMAL. Only the operation
// is timed (manual time, since SQLite's work includes I/O); building trees,
// changing data and deleting files are not. Each benchmark does one untimed
// run first. Store lines carry `vs_sqlite`, their wall time over their
// peer's in this run, and `cpu_vs_sqlite`, the same for CPU time;
// SaveChanged/subtree carries `of_full_save` (and `cpu_of_full_save`) too.
// main prints the goals after the table.
#include <zrn/IO/DataIOFacade.h>
#include <zrn/IO/DbArchive.h>
#include <zrn/Object/Project.h>
#include <zrn/Store/SqliteDevice.h>
#include <zrn/Store/StoreFacade.h>

#include <Support/TempFolder.h>

#include <benchmark/benchmark.h>

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using zrn::IBaseEntity;
using zrn::IBaseProject;

constexpr int kAssemblies = 1000;
constexpr int kPartsPerAssembly = 99;
constexpr int kDataSize = 100;
constexpr int kPartType = zrn::CEntityTypeRegistry::kFirstHostType;
constexpr std::size_t kChangedCount = 1000; // 1% of the entities
constexpr int kSubtreeAssemblies = 10;      // ten assemblies of 100 entities

// The bytes an entity holds after `generation` changes.
void FillData(char* out, long long id, unsigned generation) {
  for (int i = 0; i < kDataSize; ++i)
    out[i] = static_cast<char>(id * 131 + i * 7 + generation);
}

class CBenchImpl : public zrn::IBaseEntityImpl {
public:
  bool Serialize(zrn::GDbArchive& ar) override {
    if (ar.IsLoading())
      ar.ReadRawData(bytes.data(), kDataSize);
    else
      ar.WriteRawData(bytes.data(), kDataSize);
    return true;
  }
  std::array<char, kDataSize> bytes{};
};

class CBenchPart : public IBaseEntity {
public:
  zrn::IBaseEntityImpl* CreateBaseEntityImpl() override { return new CBenchImpl; }
};

CBenchImpl& ImplOf(IBaseEntity* entity) {
  return *static_cast<CBenchImpl*>(entity->GetBaseEntityImpl(true));
}

// The facade installed for one benchmark, the previous one put back after.
class FacadeScope {
public:
  FacadeScope() : m_previous(zrn::GetIOFacade()) {
    facade.Types().Register<CBenchPart>(kPartType);
    zrn::SetIOFacade(&facade);
  }
  ~FacadeScope() { zrn::SetIOFacade(m_previous); }
  FacadeScope(FacadeScope const&) = delete;
  FacadeScope& operator=(FacadeScope const&) = delete;

  zrn::GStoreFacade facade;

private:
  zrn::IDataIOFacade* m_previous;
};

// Assemblies are added whole, so each one and its parts get contiguous ids.
IBaseProject* BuildTree() {
  auto* project = new IBaseProject;
  for (int a = 0; a < kAssemblies; ++a) {
    auto* assembly = new CBenchPart;
    for (int p = 0; p < kPartsPerAssembly; ++p)
      assembly->AddChild(new CBenchPart);
    project->AddChild(assembly);
  }
  std::vector<IBaseEntity*> all;
  IBaseEntity::GetAllLeafChild(project, all);
  for (std::size_t i = 1; i < all.size(); ++i)
    FillData(ImplOf(all[i]).bytes.data(), all[i]->GetObjectID(), 0);
  return project;
}

// The rows the store writes for BuildTree's tree, for the bare SQLite side.
struct SPeerRows {
  std::vector<long long> ids, parentIds;
  std::vector<int> types;
  std::string data; // kDataSize bytes per row, in row order
};

SPeerRows PeerRowsOf(IBaseProject* project) {
  std::vector<IBaseEntity*> all;
  IBaseEntity::GetAllLeafChild(project, all);
  SPeerRows rows;
  rows.data.resize(all.size() * kDataSize);
  for (std::size_t i = 0; i < all.size(); ++i) {
    IBaseEntity const* parent = all[i]->GetParent();
    rows.ids.push_back(all[i]->GetObjectID());
    rows.parentIds.push_back(parent ? parent->GetObjectID() : 0);
    rows.types.push_back(parent ? kPartType : 1);
    FillData(&rows.data[i * kDataSize], rows.ids.back(), 0);
  }
  return rows;
}

void Require(bool ok, std::string const& what) {
  if (!ok)
    throw std::runtime_error(what);
}

// Wall and CPU seconds. The wall time is what a user waits for; the CPU
// time is the steadier of the two on a shared machine.
struct STimes {
  double wall = 0;
  double cpu = 0;
  STimes& operator+=(STimes const& other) {
    wall += other.wall;
    cpu += other.cpu;
    return *this;
  }
};

template <class Job> STimes Seconds(Job&& job) {
  const auto start = std::chrono::steady_clock::now();
  const std::clock_t cpuStart = std::clock();
  job();
  return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
          static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC};
}

void RemoveStore(std::filesystem::path const& path) {
  std::error_code ignored;
  for (char const* suffix : {"", "-wal", "-shm"})
    std::filesystem::remove(path.string() + suffix, ignored);
}

// ---- bare SQLite ----

class PeerStatement;

class PeerDb {
public:
  explicit PeerDb(std::filesystem::path const& path) {
    // The store's connection flags: one thread per connection, so no mutex.
    const int rc =
        sqlite3_open_v2(path.string().c_str(), &m_db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    Check(rc, "open");
    Exec("PRAGMA journal_mode=WAL");
    Exec("PRAGMA synchronous=NORMAL");
  }
  ~PeerDb() { sqlite3_close(m_db); }
  PeerDb(PeerDb const&) = delete;
  PeerDb& operator=(PeerDb const&) = delete;

  void Exec(char const* sql) { Check(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr), sql); }
  void Check(int rc, char const* what) const {
    if (rc != SQLITE_OK && rc != SQLITE_ROW && rc != SQLITE_DONE)
      throw std::runtime_error(std::string("sqlite: ") + what + ": " + sqlite3_errmsg(m_db));
  }
  sqlite3* Handle() const { return m_db; }

private:
  sqlite3* m_db = nullptr;
};

class PeerStatement {
public:
  PeerStatement(PeerDb& db, char const* sql) : m_db(db) {
    m_db.Check(
        sqlite3_prepare_v3(db.Handle(), sql, -1, SQLITE_PREPARE_PERSISTENT, &m_stmt, nullptr), sql);
  }
  ~PeerStatement() { sqlite3_finalize(m_stmt); }
  PeerStatement(PeerStatement const&) = delete;
  PeerStatement& operator=(PeerStatement const&) = delete;

  sqlite3_stmt* operator*() const { return m_stmt; }
  // Runs a statement that returns no rows and readies it for the next bind.
  void Run() {
    m_db.Check(sqlite3_step(m_stmt), "step");
    sqlite3_reset(m_stmt);
  }

private:
  PeerDb& m_db;
  sqlite3_stmt* m_stmt = nullptr;
};

void PeerInsertAll(std::filesystem::path const& path, SPeerRows const& rows) {
  PeerDb db(path);
  // The store's own table and index, so that both sides write the same b-trees.
  db.Exec("CREATE TABLE EntityTable(ID INTEGER PRIMARY KEY, PID INTEGER NOT NULL, Seq INTEGER "
          "NOT NULL DEFAULT 0, Type INTEGER NOT NULL, Flags INTEGER NOT NULL DEFAULT 0, Data BLOB);"
          "CREATE INDEX EntityRoots ON EntityTable(PID) WHERE PID = 0");
  db.Exec("BEGIN");
  PeerStatement insert(db, "INSERT INTO EntityTable(ID, PID, Seq, Type, Flags, Data) "
                           "VALUES(?, ?, 0, ?, 0, ?)");
  for (std::size_t i = 0; i < rows.ids.size(); ++i) {
    sqlite3_bind_int64(*insert, 1, rows.ids[i]);
    sqlite3_bind_int64(*insert, 2, rows.parentIds[i]);
    sqlite3_bind_int(*insert, 3, rows.types[i]);
    sqlite3_bind_blob(*insert, 4, &rows.data[i * kDataSize], kDataSize, SQLITE_STATIC);
    insert.Run();
  }
  db.Exec("COMMIT");
}

// Reads every column of every row; returns the row count.
std::size_t PeerSelectAll(std::filesystem::path const& path) {
  PeerDb db(path);
  db.Exec("BEGIN");
  PeerStatement select(db, "SELECT ID, PID, Seq, Type, Flags, Data FROM EntityTable");
  std::array<char, kDataSize> buffer{};
  std::size_t count = 0;
  long long sum = 0;
  int rc;
  while ((rc = sqlite3_step(*select)) == SQLITE_ROW) {
    sum += sqlite3_column_int64(*select, 0) + sqlite3_column_int64(*select, 1) +
           sqlite3_column_int64(*select, 2) + sqlite3_column_int(*select, 3) +
           sqlite3_column_int(*select, 4);
    const void* blob = sqlite3_column_blob(*select, 5);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(*select, 5));
    std::memcpy(buffer.data(), blob, std::min(size, buffer.size()));
    sum += buffer[0];
    ++count;
  }
  db.Check(rc, "select");
  db.Exec("COMMIT");
  benchmark::DoNotOptimize(sum);
  return count;
}

// ---- results shared between benchmarks of one run ----

// Seconds per iteration of every benchmark that has run, by name.
std::map<std::string, STimes>& Means() {
  static std::map<std::string, STimes> means;
  return means;
}

// Records `name`'s means and, when `peer` ran before it, sets `counter` (and
// "cpu_" `counter`) to the ratio of the two.
void Record(benchmark::State& state, std::string const& name, STimes const& total,
            std::string const& peer = "", std::string const& counter = "vs_sqlite") {
  const double n = static_cast<double>(state.iterations());
  const STimes mean{total.wall / n, total.cpu / n};
  Means()[name] = mean;
  auto found = Means().find(peer);
  if (peer.empty() || found == Means().end())
    return;
  state.counters[counter] = mean.wall / found->second.wall;
  state.counters["cpu_" + counter] = mean.cpu / found->second.cpu;
}

// Runs `once(i)`, which returns the times of its timed part, untimed as a
// warm-up and then once per iteration; returns the timed total.
template <class Once> STimes RunTimed(benchmark::State& state, Once&& once) {
  STimes total;
  try {
    once(-1);
    int i = 0;
    for (auto _ : state) {
      const STimes times = once(i++);
      state.SetIterationTime(times.wall);
      total += times;
    }
  } catch (std::exception const& e) {
    state.SkipWithError(e.what());
  }
  return total;
}

// ---- full save ----

void BM_Sqlite_Insert(benchmark::State& state) {
  FacadeScope scope;
  zrn::test::TempFolder folder;
  IBaseProject* project = BuildTree();
  const SPeerRows rows = PeerRowsOf(project);
  delete project;
  const STimes total = RunTimed(state, [&](int i) {
    const auto path = folder.Path() / ("peer" + std::to_string(i) + ".db");
    const STimes seconds = Seconds([&] { PeerInsertAll(path, rows); });
    RemoveStore(path);
    return seconds;
  });
  Record(state, "save/sqlite", total);
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(rows.ids.size()));
}

void BM_Store_Save(benchmark::State& state) {
  FacadeScope scope;
  zrn::test::TempFolder folder;
  const STimes total = RunTimed(state, [&](int i) {
    const auto path = folder.Path() / ("store" + std::to_string(i) + ".db");
    IBaseProject* project = BuildTree();
    auto* device = new zrn::GSqliteDevice;
    const STimes seconds = Seconds([&] {
      project->SetProjectDBDevice(device);
      project->SaveProject(path.wstring());
      device->Close();
    });
    const bool ok = scope.facade.LastSaveSucceeded();
    const std::string error = device->LastError();
    delete project;
    RemoveStore(path);
    Require(ok, "save failed: " + error);
    return seconds;
  });
  Record(state, "save/store", total, "save/sqlite");
  state.SetItemsProcessed(state.iterations() * (kAssemblies * (kPartsPerAssembly + 1) + 1));
}

// ---- load ----

// A saved store and the bare SQLite file of the same rows, in one folder.
struct SSavedFiles {
  zrn::test::TempFolder folder;
  std::filesystem::path store = folder.Path() / "store.db";
  std::filesystem::path peer = folder.Path() / "peer.db";
  std::size_t rowCount = 0;
};

// Made on first use and kept for the run; `scope`'s facade saves the store.
SSavedFiles const& SavedFiles(FacadeScope& scope) {
  static SSavedFiles files;
  if (files.rowCount != 0)
    return files;
  IBaseProject* project = BuildTree();
  PeerInsertAll(files.peer, PeerRowsOf(project));
  project->SetProjectDBDevice(new zrn::GSqliteDevice);
  project->SaveProject(files.store.wstring());
  const bool ok = scope.facade.LastSaveSucceeded();
  delete project;
  Require(ok, "saving the store to load failed");
  files.rowCount = kAssemblies * (kPartsPerAssembly + 1) + 1;
  return files;
}

void BM_Sqlite_Select(benchmark::State& state) {
  FacadeScope scope;
  const STimes total = RunTimed(state, [&](int) {
    SSavedFiles const& files = SavedFiles(scope);
    std::size_t count = 0;
    const STimes seconds = Seconds([&] { count = PeerSelectAll(files.peer); });
    Require(count == files.rowCount, "bare SQLite read the wrong number of rows");
    return seconds;
  });
  Record(state, "load/sqlite", total);
}

void BM_Store_Load(benchmark::State& state, bool eager) {
  FacadeScope scope;
  scope.facade.SetEagerLoad(eager);
  const STimes total = RunTimed(state, [&](int) {
    SSavedFiles const& files = SavedFiles(scope);
    auto* device = new zrn::GSqliteDevice;
    IBaseProject* project = nullptr;
    const STimes seconds =
        Seconds([&] { project = IBaseProject::LoadProject(0, files.store.wstring(), device); });
    if (!project) {
      const std::string error = device->LastError();
      delete device;
      throw std::runtime_error("load failed: " + error);
    }
    std::vector<IBaseEntity*> all;
    IBaseEntity::GetAllLeafChild(project, all);
    IBaseEntity* last = all.back();
    bool complete =
        all.size() == files.rowCount && last->HasObjectFlag(zrn::EGOBJECT_FLAG_SWAPPED) != eager;
    std::array<char, kDataSize> expected;
    FillData(expected.data(), last->GetObjectID(), 0);
    complete = complete && ImplOf(last).bytes == expected; // lazily: fetched here
    delete project;
    Require(complete, "the store loaded an incomplete tree or other data");
    return seconds;
  });
  Record(state, eager ? "load/store" : "load/store-lazy", total, "load/sqlite");
}

// ---- incremental save ----

enum class EChange { Random, Subtree };

// The ids of the 1% of entities a change touches.
std::vector<long long> ChangedIds(IBaseProject* project, EChange change) {
  std::vector<IBaseEntity*> picked;
  if (change == EChange::Subtree) {
    auto const& assemblies = project->GetAllChild();
    const std::size_t first = assemblies.size() / 2;
    for (std::size_t a = first; a < first + kSubtreeAssemblies; ++a)
      IBaseEntity::GetAllLeafChild(assemblies[a], picked);
  } else {
    IBaseEntity::GetAllLeafChild(project, picked);
    picked.erase(picked.begin()); // not the project
    std::mt19937 random(20240601);
    std::shuffle(picked.begin(), picked.end(), random);
    picked.resize(kChangedCount);
  }
  std::vector<long long> ids;
  for (IBaseEntity* entity : picked)
    ids.push_back(entity->GetObjectID());
  std::sort(ids.begin(), ids.end());
  return ids;
}

char const* ChangeName(EChange change) { return change == EChange::Random ? "random" : "subtree"; }

void BM_Sqlite_Update(benchmark::State& state, EChange change) {
  FacadeScope scope;
  zrn::test::TempFolder folder;
  const auto path = folder.Path() / "peer.db";
  IBaseProject* project = BuildTree();
  const std::vector<long long> ids = ChangedIds(project, change);
  PeerInsertAll(path, PeerRowsOf(project));
  delete project;
  std::vector<char> data(ids.size() * kDataSize);
  PeerDb db(path);
  PeerStatement update(db, "UPDATE EntityTable SET Data = ? WHERE ID = ?");
  const STimes total = RunTimed(state, [&](int i) {
    for (std::size_t k = 0; k < ids.size(); ++k)
      FillData(&data[k * kDataSize], ids[k], static_cast<unsigned>(i + 2));
    return Seconds([&] {
      db.Exec("BEGIN");
      for (std::size_t k = 0; k < ids.size(); ++k) {
        sqlite3_bind_blob(*update, 1, &data[k * kDataSize], kDataSize, SQLITE_STATIC);
        sqlite3_bind_int64(*update, 2, ids[k]);
        update.Run();
      }
      db.Exec("COMMIT");
    });
  });
  Record(state, std::string("update-") + ChangeName(change) + "/sqlite", total);
}

void BM_Store_SaveChanged(benchmark::State& state, EChange change) {
  FacadeScope scope;
  zrn::test::TempFolder folder;
  const std::wstring path = (folder.Path() / "store.db").wstring();
  IBaseProject* project = BuildTree();
  project->SetProjectDBDevice(new zrn::GSqliteDevice);
  project->SaveProject(path);
  // Pre-order gives the ids 1, 2, 3... of BuildTree's tree.
  std::vector<IBaseEntity*> byId;
  IBaseEntity::GetAllLeafChild(project, byId);
  Require(byId.back()->GetObjectID() == static_cast<long long>(byId.size()), "unexpected ids");
  std::vector<long long> const ids = ChangedIds(project, change);
  const STimes total = RunTimed(state, [&](int i) {
    Require(scope.facade.LastSaveSucceeded(), "the previous save failed");
    for (long long id : ids) {
      IBaseEntity* entity = byId[static_cast<std::size_t>(id - 1)];
      FillData(ImplOf(entity).bytes.data(), id, static_cast<unsigned>(i + 2));
      entity->SetObjectFlag(true, zrn::EGOBJECT_FLAG_MODIFIED);
    }
    const STimes seconds = Seconds([&] { project->SaveProject(path); });
    Require(scope.facade.LastSaveSucceeded() && scope.facade.LastSaveRowCount() == ids.size(),
            "the incremental save failed or wrote other rows than the changed ones");
    return seconds;
  });
  delete project;
  const std::string prefix = std::string("update-") + ChangeName(change);
  Record(state, prefix + "/store", total, prefix + "/sqlite");
  if (change == EChange::Subtree)
    Record(state, prefix + "/store", total, "save/store", "of_full_save");
}

void BM_Store_LoadEager(benchmark::State& state) { BM_Store_Load(state, true); }
void BM_Store_LoadLazy(benchmark::State& state) { BM_Store_Load(state, false); }

// Registered pairwise, the peer first, so that each store line finds its
// peer's mean; a handful of iterations each keeps the run short.
void ManualMs(benchmark::internal::Benchmark* bench) {
  bench->UseManualTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_Sqlite_Insert)->Apply(ManualMs)->Iterations(6);
BENCHMARK(BM_Store_Save)->Apply(ManualMs)->Iterations(6);
BENCHMARK(BM_Sqlite_Select)->Apply(ManualMs)->Iterations(20);
BENCHMARK(BM_Store_LoadEager)->Apply(ManualMs)->Iterations(20);
BENCHMARK(BM_Store_LoadLazy)->Apply(ManualMs)->Iterations(20);
BENCHMARK_CAPTURE(BM_Sqlite_Update, random, EChange::Random)->Apply(ManualMs)->Iterations(20);
BENCHMARK_CAPTURE(BM_Store_SaveChanged, random, EChange::Random)->Apply(ManualMs)->Iterations(20);
BENCHMARK_CAPTURE(BM_Sqlite_Update, subtree, EChange::Subtree)->Apply(ManualMs)->Iterations(20);
BENCHMARK_CAPTURE(BM_Store_SaveChanged, subtree, EChange::Subtree)->Apply(ManualMs)->Iterations(20);

// The goals the store aims at, from the means of this run.
void PrintGoals() {
  struct SGoal {
    char const* what;
    char const* measured;
    char const* baseline;
    double limit;
  };
  static const SGoal kGoals[] = {
      {"full save / bare SQLite", "save/store", "save/sqlite", 1.5},
      {"eager load / bare SQLite", "load/store", "load/sqlite", 1.5},
      {"random 1% save / bare SQLite", "update-random/store", "update-random/sqlite", 1.5},
      {"subtree 1% save / full save", "update-subtree/store", "save/store", 0.05},
  };
  std::printf("\n%-32s %8s %8s %8s\n", "goal (met by wall time)", "wall", "cpu", "limit");
  for (SGoal const& goal : kGoals) {
    auto measured = Means().find(goal.measured);
    auto baseline = Means().find(goal.baseline);
    if (measured == Means().end() || baseline == Means().end())
      continue;
    const double wall = measured->second.wall / baseline->second.wall;
    const double cpu = measured->second.cpu / baseline->second.cpu;
    std::printf("%-32s %8.3f %8.3f %8.2f  %s\n", goal.what, wall, cpu, goal.limit,
                wall <= goal.limit ? "met" : "MISSED");
  }
}

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  PrintGoals();
  benchmark::Shutdown();
  return 0;
}

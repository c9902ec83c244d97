// The server store next to the embedded one and next to bare libpq, on a
// project of 100 000 entities (100 groups of 1 000) whose impl data is 100
// bytes of text:
//
//   Save/Postgres      a whole project saved into an empty store
//   Save/Sqlite        the same into a new SQLite file
//   Save/BareLibpq     the same rows inserted with libpq alone: one prepared
//                      binary INSERT per row, one transaction
//   Save/BarePipelined the same, with the statements pipelined
//   Load/Postgres      the project loaded, every impl read (eager), and lazily
//   Load/Sqlite        the same from the SQLite file (eager)
//   Load/BareLibpq     the rows selected with libpq alone, binary, one query,
//                      on an open connection (connect:0) or on a new one, as
//                      each Load/Postgres round opens one (connect:1)
//   Concurrent/N       N processes (copies of this program) each load the
//                      project, change their own share of the groups and
//                      save at once; entities saved per second of the
//                      slowest, and the count of changes lost (must be 0)
//
// Needs a server: scripts/run-bench.sh starts a throwaway one and passes its
// URL in ZRN_TEST_PG_URL. Each benchmark works in a schema of its own.
#include <zrn/IO/TaggedObject.h>
#include <zrn/Object/Project.h>
#include <zrn/Store/PostgresDevice.h>
#include <zrn/Store/SqliteDevice.h>
#include <zrn/Store/StoreFacade.h>
#include <zrn/System/CoreSystem.h>

#include <benchmark/benchmark.h>
#include <libpq-fe.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using zrn::IBaseEntity;
using zrn::IBaseProject;

constexpr int kGroups = 100;
constexpr int kPerGroup = 1000;

class CBenchImpl : public zrn::IBaseEntityImpl {
public:
  bool Serialize(zrn::GDbArchive& ar) override {
    zrn::GTaggedObject object(ar, typeid(*this));
    if (!ar.IsLoading())
      return object.Write(1, [&] { object.Block(1, [&] { ar << text; }); });
    return object.Read(1, [&](unsigned char tag) {
      if (tag == 1)
        ar >> text;
      return tag == 1;
    });
  }
  std::string text;
};

class CBenchEntity : public IBaseEntity {
public:
  zrn::IBaseEntityImpl* CreateBaseEntityImpl() override { return new CBenchImpl; }
};

CBenchImpl* ImplOf(IBaseEntity* entity) {
  return static_cast<CBenchImpl*>(entity->GetBaseEntityImpl(true));
}

std::string Payload(char fill) { return std::string(100, fill); }

IBaseProject* BuildProject() {
  auto* project = new IBaseProject;
  for (int g = 0; g < kGroups; ++g) {
    auto* group = new CBenchEntity;
    ImplOf(group)->text = Payload('g');
    project->AddChild(group);
    for (int i = 0; i < kPerGroup; ++i) {
      auto* part = new CBenchEntity;
      ImplOf(part)->text = Payload('a');
      group->AddChild(part);
    }
  }
  return project;
}

std::string ServerUrl() {
  char const* url = std::getenv("ZRN_TEST_PG_URL");
  return url ? url : "";
}

std::string UrlWithSchema(std::string const& schema) {
  std::string url = ServerUrl();
  return url + (url.find('?') == std::string::npos ? "?" : "&") + "options=-csearch_path%3D" +
         schema;
}

std::wstring Wide(std::string const& text) { return std::wstring(text.begin(), text.end()); }

// A connection of the benchmark's own; exits on failure.
class CAdmin {
public:
  explicit CAdmin(std::string const& url) : m_conn(PQconnectdb(url.c_str())) {
    if (PQstatus(m_conn) != CONNECTION_OK) {
      std::fprintf(stderr, "cannot connect: %s", PQerrorMessage(m_conn));
      std::exit(1);
    }
    PQsetNoticeProcessor(
        m_conn, [](void*, char const*) {}, nullptr);
  }
  ~CAdmin() { PQfinish(m_conn); }
  CAdmin(CAdmin const&) = delete;
  CAdmin& operator=(CAdmin const&) = delete;
  void Exec(std::string const& sql) {
    PGresult* result = PQexec(m_conn, sql.c_str());
    if (PQresultStatus(result) != PGRES_COMMAND_OK && PQresultStatus(result) != PGRES_TUPLES_OK) {
      std::fprintf(stderr, "%s: %s", sql.c_str(), PQerrorMessage(m_conn));
      std::exit(1);
    }
    PQclear(result);
  }
  PGconn* Get() const { return m_conn; }

private:
  PGconn* m_conn;
};

// A schema for one benchmark, holding the store's tables; dropped at the end.
class CSchema {
public:
  explicit CSchema(char const* name) : m_name(name), m_admin(ServerUrl()) {
    m_admin.Exec("DROP SCHEMA IF EXISTS " + m_name + " CASCADE; CREATE SCHEMA " + m_name);
    zrn::GPostgresDevice device; // creates the tables
    if (!device.Open(Wide(Url()))) {
      std::fprintf(stderr, "%s\n", device.LastError().c_str());
      std::exit(1);
    }
  }
  ~CSchema() { m_admin.Exec("DROP SCHEMA " + m_name + " CASCADE"); }
  std::string Url() const { return UrlWithSchema(m_name); }
  void Empty() { m_admin.Exec("TRUNCATE " + m_name + ".EntityTable, " + m_name + ".ProjectTable"); }

private:
  std::string m_name;
  CAdmin m_admin;
};

struct SFacade {
  SFacade() {
    facade.Types().Register<CBenchEntity>(100);
    zrn::SetIOFacade(&facade);
  }
  ~SFacade() { zrn::SetIOFacade(nullptr); }
  zrn::GStoreFacade facade;
};

// Runs `setup` and then `op` once to warm up, then once per iteration,
// timing `op` alone.
template <class Setup, class Op> void Timed(benchmark::State& state, Setup setup, Op op) {
  setup();
  op();
  for (auto _ : state) {
    setup();
    auto start = std::chrono::steady_clock::now();
    op();
    std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(took.count());
  }
}

void SaveWhole(IBaseProject* project, zrn::GEntityStoreDevice* device, std::wstring const& where,
               zrn::GStoreFacade& facade, benchmark::State& state) {
  project->SetProjectDBDevice(device);
  project->SaveProject(where);
  if (!facade.LastSaveSucceeded())
    state.SkipWithError(device->LastError().c_str());
}

void SavePostgres(benchmark::State& state) {
  SFacade facade;
  CSchema schema("bench_save");
  std::unique_ptr<IBaseProject> project;
  Timed(
      state,
      [&] {
        project.reset(BuildProject());
        schema.Empty();
      },
      [&] {
        SaveWhole(project.get(), new zrn::GPostgresDevice, Wide(schema.Url()), facade.facade,
                  state);
      });
}

// Removes an SQLite store and its write-ahead log.
void RemoveStoreFile(std::filesystem::path const& file) {
  for (char const* suffix : {"", "-wal", "-shm"})
    std::filesystem::remove(file.string() + suffix);
}

void SaveSqlite(benchmark::State& state) {
  SFacade facade;
  std::filesystem::path file = std::filesystem::temp_directory_path() / "zrn-bench-save.zrndb";
  std::unique_ptr<IBaseProject> project;
  Timed(
      state,
      [&] {
        project.reset(BuildProject());
        RemoveStoreFile(file);
      },
      [&] {
        SaveWhole(project.get(), new zrn::GSqliteDevice, file.wstring(), facade.facade, state);
      });
  project.reset();
  RemoveStoreFile(file);
}

// The row libpq alone writes: the columns of the store's table, with a blob
// of the archived impl's size.
struct SBareRow {
  char ints[7][8];
  char const* values[7];
  int lengths[7] = {8, 8, 8, 4, 4, 0, 8};
  int formats[7] = {1, 1, 1, 1, 1, 1, 1};
  std::string blob = std::string(128, 'a');

  SBareRow() {
    for (int i = 0; i < 7; ++i)
      values[i] = ints[i];
    values[5] = blob.data();
    lengths[5] = static_cast<int>(blob.size());
  }
  void Set(long long id, long long parent) {
    Put(0, id, 8);
    Put(1, parent, 8);
    Put(2, 0, 8);
    Put(3, 100, 4);
    Put(4, 0, 4);
    Put(6, 1, 8);
  }
  void Put(int at, long long value, int size) {
    for (int i = size - 1; i >= 0; --i, value >>= 8)
      ints[at][i] = static_cast<char>(value & 0xFF);
  }
};

// Ends a batch of pipelined statements and reads their answers.
void SyncPipeline(PGconn* conn) {
  PQpipelineSync(conn);
  for (bool synced = false; !synced;)
    if (PGresult* result = PQgetResult(conn)) {
      synced = PQresultStatus(result) == PGRES_PIPELINE_SYNC;
      PQclear(result);
    }
}

void BareInsert(PGconn* conn, bool pipelined, benchmark::State& state) {
  PQclear(PQexec(conn, "BEGIN"));
  SBareRow row;
  long long id = 1;
  int pending = 0;
  auto send = [&](long long parent) {
    row.Set(id++, parent);
    if (!pipelined) {
      PGresult* result = PQexecPrepared(conn, "ins", 7, row.values, row.lengths, row.formats, 1);
      if (PQresultStatus(result) != PGRES_COMMAND_OK)
        state.SkipWithError(PQerrorMessage(conn));
      PQclear(result);
      return;
    }
    PQsendQueryPrepared(conn, "ins", 7, row.values, row.lengths, row.formats, 1);
    if (++pending == 1024) {
      SyncPipeline(conn);
      pending = 0;
    }
  };
  if (pipelined)
    PQenterPipelineMode(conn);
  send(0);
  for (int g = 0; g < kGroups; ++g) {
    long long const group = id;
    send(1);
    for (int i = 0; i < kPerGroup; ++i)
      send(group);
  }
  if (pipelined) {
    SyncPipeline(conn);
    PQexitPipelineMode(conn);
  }
  PQclear(PQexec(conn, "COMMIT"));
}

void SaveBare(benchmark::State& state, bool pipelined) {
  CSchema schema(pipelined ? "bench_bare_pipe" : "bench_bare");
  CAdmin conn(schema.Url());
  PQclear(PQprepare(conn.Get(), "ins",
                    "INSERT INTO EntityTable(ID, PID, Seq, Type, Flags, Data, Rev)"
                    " VALUES($1, $2, $3, $4, $5, $6, $7)",
                    0, nullptr));
  Timed(
      state, [&] { schema.Empty(); }, [&] { BareInsert(conn.Get(), pipelined, state); });
}

void SaveBareLibpq(benchmark::State& state) { SaveBare(state, false); }
void SaveBarePipelined(benchmark::State& state) { SaveBare(state, true); }

// Loads the project `rounds` + 1 times (the first warms up).
template <class MakeDevice>
void LoadRounds(benchmark::State& state, std::wstring const& where, bool eager, MakeDevice make) {
  SFacade facade;
  facade.facade.SetEagerLoad(eager);
  {
    std::unique_ptr<IBaseProject> project(BuildProject());
    SaveWhole(project.get(), make(), where, facade.facade, state);
  }
  std::unique_ptr<IBaseProject> loaded;
  Timed(
      state, [&] { loaded.reset(); },
      [&] {
        zrn::GEntityStoreDevice* device = make();
        loaded.reset(IBaseProject::LoadProject(0, where, device));
        if (!loaded || loaded->GetAllChild().size() != kGroups) {
          state.SkipWithError(("load failed: " + device->LastError()).c_str());
          delete device;
        }
      });
  loaded.reset();
}

void LoadPostgres(benchmark::State& state) {
  CSchema schema(state.range(0) ? "bench_load_eager" : "bench_load_lazy");
  LoadRounds(state, Wide(schema.Url()), state.range(0) != 0,
             [] { return new zrn::GPostgresDevice; });
}

void LoadSqlite(benchmark::State& state) {
  std::filesystem::path file = std::filesystem::temp_directory_path() / "zrn-bench-load.zrndb";
  RemoveStoreFile(file);
  LoadRounds(state, file.wstring(), true, [] { return new zrn::GSqliteDevice; });
  RemoveStoreFile(file);
}

// Selects every row in binary, as a load does, and touches each cell.
void BareSelect(PGconn* conn) {
  PGresult* result =
      PQexecParams(conn, "SELECT ID, PID, Seq, Type, Flags, Rev, Data FROM EntityTable ORDER BY ID",
                   0, nullptr, nullptr, nullptr, nullptr, 1);
  std::size_t bytes = 0;
  for (int i = 0; i < PQntuples(result); ++i)
    for (int c = 0; c < 7; ++c)
      bytes += static_cast<std::size_t>(PQgetlength(result, i, c)) +
               static_cast<unsigned char>(PQgetvalue(result, i, c)[0]);
  benchmark::DoNotOptimize(bytes);
  PQclear(result);
}

// With `connect` 1 each round connects first, as a load through a new device
// does; with 0 it reuses one open connection.
void LoadBareLibpq(benchmark::State& state) {
  CSchema schema("bench_load_bare");
  {
    SFacade facade;
    std::unique_ptr<IBaseProject> project(BuildProject());
    SaveWhole(project.get(), new zrn::GPostgresDevice, Wide(schema.Url()), facade.facade, state);
  }
  if (state.range(0)) {
    Timed(
        state, [] {}, [&] { BareSelect(CAdmin(schema.Url()).Get()); });
    return;
  }
  CAdmin conn(schema.Url());
  Timed(
      state, [] {}, [&] { BareSelect(conn.Get()); });
}

// --- Several processes ------------------------------------------------------

// In a child: loads the project, waits for `go`, changes the groups whose
// index modulo `count` is `share`, saves, and writes the seconds the save
// took (or an error) to `out`.
int Child(std::string const& url, int share, int count, std::string const& ready,
          std::string const& go, std::string const& out) {
  SFacade facade;
  auto* device = new zrn::GPostgresDevice;
  std::unique_ptr<IBaseProject> project(IBaseProject::LoadProject(0, Wide(url), device));
  std::ofstream result(out);
  if (!project) {
    result << "error " << device->LastError() << "\n";
    return 1;
  }
  std::ofstream(ready).put('\n');
  while (!std::filesystem::exists(go))
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  std::vector<IBaseEntity*> const& groups = project->GetAllChild();
  for (std::size_t g = share; g < groups.size(); g += count)
    for (IBaseEntity* part : groups[g]->GetAllChild()) {
      ImplOf(part)->text = Payload(static_cast<char>('A' + share));
      part->SetObjectFlag(true, zrn::EGOBJECT_FLAG_MODIFIED);
    }
  auto start = std::chrono::steady_clock::now();
  project->SaveProject(Wide(url));
  std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  if (!facade.facade.LastSaveSucceeded())
    result << "error " << device->LastError() << "\n";
  else
    result << took.count() << "\n";
  return 0;
}

// Changes whose value is not what their process saved.
long long LostChanges(std::string const& url, int count) {
  SFacade facade;
  facade.facade.SetEagerLoad(true);
  auto* device = new zrn::GPostgresDevice;
  std::unique_ptr<IBaseProject> project(IBaseProject::LoadProject(0, Wide(url), device));
  if (!project)
    return -1;
  long long lost = 0;
  std::vector<IBaseEntity*> const& groups = project->GetAllChild();
  for (std::size_t g = 0; g < groups.size(); ++g)
    for (IBaseEntity* part : groups[g]->GetAllChild())
      lost += ImplOf(part)->text != Payload(static_cast<char>('A' + g % count));
  return lost;
}

void Concurrent(benchmark::State& state) {
  int const count = static_cast<int>(state.range(0));
  CSchema schema("bench_concurrent");
  std::filesystem::path folder = std::filesystem::temp_directory_path() /
                                 ("zrn-bench-" + std::to_string(std::random_device()()));
  std::string const self = std::filesystem::path(zrn::GCoreSystem::GetExeFilePath()).string();
  double slowest = 0;
  long long lost = 0;
  for (auto _ : state) {
    {
      SFacade facade;
      schema.Empty();
      std::unique_ptr<IBaseProject> project(BuildProject());
      SaveWhole(project.get(), new zrn::GPostgresDevice, Wide(schema.Url()), facade.facade, state);
    }
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    std::string command;
    for (int k = 0; k < count; ++k) {
      std::string const base = (folder / std::to_string(k)).string();
      command += "'" + self + "' --zrn-child '" + schema.Url() + "' " + std::to_string(k) + " " +
                 std::to_string(count) + " '" + base + ".ready' '" + (folder / "go").string() +
                 "' '" + base + ".out' & ";
    }
    command += "wait";
    std::thread children([&] { std::system(command.c_str()); });
    for (int k = 0; k < count; ++k)
      while (!std::filesystem::exists(folder / (std::to_string(k) + ".ready")))
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    std::ofstream((folder / "go").string()).put('\n');
    children.join();
    slowest = 0;
    for (int k = 0; k < count; ++k) {
      std::ifstream in(folder / (std::to_string(k) + ".out"));
      std::string text;
      std::getline(in, text);
      if (text.empty() || text.rfind("error", 0) == 0) {
        state.SkipWithError(("a process failed: " + text).c_str());
        break;
      }
      slowest = std::max(slowest, std::stod(text));
    }
    state.SetIterationTime(slowest > 0 ? slowest : 1e-9);
    lost = LostChanges(schema.Url(), count);
  }
  std::filesystem::remove_all(folder);
  state.counters["entities_per_s"] = slowest > 0 ? kGroups * kPerGroup / slowest : 0;
  state.counters["lost"] = static_cast<double>(lost);
}

// Each benchmark times its own rounds: a few, in milliseconds.
void Measured(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
}

} // namespace

BENCHMARK(SavePostgres)->Name("Save/Postgres")->Apply(Measured);
BENCHMARK(SaveSqlite)->Name("Save/Sqlite")->Apply(Measured);
BENCHMARK(SaveBareLibpq)->Name("Save/BareLibpq")->Apply(Measured);
BENCHMARK(SaveBarePipelined)->Name("Save/BarePipelined")->Apply(Measured);
BENCHMARK(LoadPostgres)->Name("Load/Postgres")->ArgName("eager")->Arg(1)->Arg(0)->Apply(Measured);
BENCHMARK(LoadSqlite)->Name("Load/Sqlite")->Apply(Measured);
BENCHMARK(LoadBareLibpq)
    ->Name("Load/BareLibpq")
    ->ArgName("connect")
    ->Arg(0)
    ->Arg(1)
    ->Apply(Measured);
BENCHMARK(Concurrent)->Name("Concurrent")->Arg(1)->Arg(2)->Arg(4)->Apply(Measured)->Iterations(1);

int main(int argc, char** argv) {
  if (argc == 8 && std::strcmp(argv[1], "--zrn-child") == 0)
    return Child(argv[2], std::atoi(argv[3]), std::atoi(argv[4]), argv[5], argv[6], argv[7]);
  if (ServerUrl().empty()) {
    std::printf(
        "PostgresBench: no server (ZRN_TEST_PG_URL is not set; scripts/run-bench.sh starts one)\n");
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

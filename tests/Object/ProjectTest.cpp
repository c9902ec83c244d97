// Projects and the persistence side of entities, against a logging device
// and facade.
#include <zrn/IO/DBDevice.h>
#include <zrn/IO/DataIOFacade.h>
#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/Object/Project.h>
#include <zrn/Property/Variant.h>

#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace zrn {
namespace {

using Log = std::vector<std::string>;
using test::Bytes;

// Logs every call the library makes, marked L or S while the device's
// loading or saving option is set, and the facade's calls as well.
class TestDevice : public GDBDevice {
public:
  explicit TestDevice(Log& sink) : log(sink) {}
  bool Open(std::wstring const& path) override {
    return Note("Open " + std::string(path.begin(), path.end())), opens;
  }
  void Close() override {}
  bool IsOpen() const override { return true; }
  void BeginAccess() override { Note("Begin"); }
  void EndAccess() override { Note("End"); }
  bool BeginTransaction() override { return true; }
  bool CommitTransaction() override { return true; }
  bool RollbackTransaction() override { return true; }
  bool WriteData(std::string const&, long long, std::string const&) override { return true; }
  bool ReadData(std::string const&, long long, std::string&) override { return false; }
  bool DeleteRecords(std::string const&, std::vector<long long> const&) override { return true; }
  void QueryColumn(std::string const& table, std::vector<std::string> const& columns,
                   std::string const& key, long long value, std::vector<CVariant>& out) override {
    Note("Query " + table + " " + columns.at(0) + std::to_string(columns.size()) + " " + key +
         std::to_string(value));
    out = rows;
  }
  void Note(std::string text) {
    log.push_back(text + (GetDeviceContext().loading ? " L" : "") +
                  (GetDeviceContext().saving ? " S" : ""));
  }
  Log& log;
  bool opens = true;
  std::vector<CVariant> rows;
};

class TestFacade : public IDataIOFacade {
public:
  explicit TestFacade(TestDevice& device) : m_device(device) {}
  void SaveProjectData(IBaseProject*, GDBDevice* d) override { Note("Save", d); }
  IBaseEntity* LoadProjectData(long long id, GDBDevice* d) override {
    return Note("Load " + std::to_string(id), d), loaded;
  }
  void SaveEntityData(IBaseEntity*, GDBDevice*) override {}
  void LoadChildEntities(IBaseEntity*, GDBDevice*) override {}
  void ReloadEntityData(IBaseEntity*, GDBDevice*) override {}
  void DeleteEntityData(std::vector<long long> const&, GDBDevice*) override {}
  void FinishSave(GDBDevice*) override {}
  void LoadEntityData(IBaseEntity* e, GDBDevice* d) override { Note("In", e, d); }
  void SwapOutEntityData(IBaseEntity* e, GDBDevice* d) override { Note("Out", e, d); }
  void PrepareSave(GDBDevice* d) override { Note("Prepare", d); }
  IBaseEntity* loaded = nullptr;

private:
  void Note(std::string text, GDBDevice* d) { m_device.Note(d == &m_device ? text : "?"); }
  void Note(std::string text, IBaseEntity* e, GDBDevice* d) {
    Note(text + std::to_string(e->GetObjectID()), d);
  }
  TestDevice& m_device;
};

// A project with a logging device and a facade ready to install. Puts the
// facade pointer and the error-box counter back as they were.
class IBaseProjectTest : public ::testing::Test {
protected:
  IBaseProjectTest() { project.SetProjectDBDevice(device); }
  void TearDown() override {
    SetIOFacade(m_previousFacade);
    g_nSerializeErrorMsgBoxMaxCount = m_previousBoxes;
  }

private:
  IDataIOFacade* m_previousFacade = GetIOFacade();
  int m_previousBoxes = g_nSerializeErrorMsgBoxMaxCount;

protected:
  Log log;
  TestDevice* device = new TestDevice(log);
  TestFacade facade{*device};
  IBaseProject project; // owns the device
};

// Collects its error boxes and, when told, fails on 64-bit values.
class TestArchive : public GDbArchiveImpl {
public:
  using GDbArchiveImpl::GDbArchiveImpl;
  using GDbArchiveImpl::operator<<;
  using GDbArchiveImpl::operator>>;
  GDbArchive& operator<<(long long v) override {
    return fail ? throw std::runtime_error("full") : GDbArchiveImpl::operator<<(v);
  }
  GDbArchive& operator>>(long long& v) override {
    return fail ? throw std::runtime_error("gone") : GDbArchiveImpl::operator>>(v);
  }
  void ErrorMsgBox(std::string caption, std::string text) override {
    boxes.push_back(caption + "|" + text);
  }
  bool fail = false;
  Log boxes;
};

class HostProject : public IBaseProject {};

// Stores `project` and then the int 77.
Bytes Store(IBaseProject& project, bool fail = false, Log* boxes = nullptr) {
  GMemStream stream(true, nullptr, 0);
  TestArchive ar(&stream);
  ar.fail = fail;
  ar << project << 77;
  if (boxes)
    *boxes = ar.boxes;
  return test::Written(stream);
}

// Loads `project` from `bytes` and checks that the int 77 follows it.
Log Load(IBaseProject& project, Bytes const& bytes, bool fail = false) {
  CRefPtr<GMemStream> stream(test::LoadingStream(bytes));
  TestArchive ar(stream.get());
  ar.fail = fail;
  int marker = 0;
  ar >> project >> marker;
  EXPECT_EQ(marker, 77);
  EXPECT_EQ(ar.GetVersion(), 0);
  return ar.boxes;
}

const std::string kWhere = "\nfile: Object\\IBase:";

TEST_F(IBaseProjectTest, IdsDeviceAndSaveOrder) {
  EXPECT_EQ(project.GetObjectType(), GBM_PROJECT);
  EXPECT_EQ(project.GetUniqueID(), 2);
  EXPECT_EQ(project.GetUniqueID(), 3);
  IBaseProject bare;
  SetIOFacade(&facade);
  bare.SaveProject(L"p"); // no device
  SetIOFacade(nullptr);
  project.SaveProject(L"p"); // no facade
  EXPECT_TRUE(log.empty());

  SetIOFacade(&facade);
  device->opens = false; // not looked at
  project.SaveProject(L"p.db");
  EXPECT_EQ(log, (Log{"Open p.db", "Prepare", "Begin S", "Save S", "End S"}));
  EXPECT_FALSE(device->GetDeviceContext().saving);

  bare.SetProjectDBDevice(device);
  bare.SetProjectDBDevice(nullptr); // handed back, not deleted
  EXPECT_EQ(project.GetDBDevice(), device);
}

TEST_F(IBaseProjectTest, LoadOrderAndRootLookup) {
  EXPECT_EQ(IBaseProject::LoadProject(7, L"p", device), nullptr); // no facade
  SetIOFacade(&facade);
  EXPECT_EQ(IBaseProject::LoadProject(7, L"p", nullptr), nullptr);
  EXPECT_TRUE(log.empty());

  HostProject loaded;
  facade.loaded = &loaded;
  EXPECT_EQ(IBaseProject::LoadProject(7, L"p", device), &loaded);
  EXPECT_EQ(log, (Log{"Open p", "Begin L", "Load 7 L", "End L"}));
  EXPECT_FALSE(device->GetDeviceContext().loading);

  log.clear(); // no root row: nothing loaded
  EXPECT_EQ(IBaseProject::LoadProject(0, L"p", device), nullptr);
  EXPECT_EQ(log, (Log{"Open p", "Query EntityTable ID1 PID0"}));

  log.clear(); // the first value is the id; a root that is no project gives null
  device->rows = {CVariant(42LL), CVariant(43LL)};
  IBaseEntity plain;
  facade.loaded = &plain;
  EXPECT_EQ(IBaseProject::LoadProject(0, L"p", device), nullptr);
  EXPECT_EQ(log, (Log{"Open p", "Query EntityTable ID1 PID0", "Begin L", "Load 42 L", "End L"}));

  log.clear();
  device->opens = false;
  EXPECT_EQ(IBaseProject::LoadProject(7, L"p", device), nullptr);
  EXPECT_EQ(log, (Log{"Open p"}));
}

TEST_F(IBaseProjectTest, CounterRoundTrip) {
  g_nSerializeErrorMsgBoxMaxCount = -10;
  for (int i = 0; i < 4; ++i)
    project.GetUniqueID();
  Bytes stream{1, 0, 1, 1, 8, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 77, 0, 0, 0};
  EXPECT_EQ(Store(project), stream);
  IBaseProject back;
  EXPECT_TRUE(Load(back, stream).empty());
  EXPECT_EQ(back.GetUniqueID(), 6);

  // An unknown block is skipped; a block 1 longer than its value is reported
  // and left at its end.
  const Bytes padded{1,  0, 2, 9, 2, 0, 0, 0, 0xEE, 0xEE, 1,  10, 0, 0, 0,
                     30, 0, 0, 0, 0, 0, 0, 0, 0xEE, 0xEE, 77, 0,  0, 0};
  EXPECT_EQ(Load(back, padded), (Log{"load data|read block error :" + kWhere + "365"}));
  EXPECT_EQ(back.GetUniqueID(), 31);
  stream[0] = 2; // a newer version is skipped whole
  EXPECT_TRUE(Load(back, stream).empty());
  EXPECT_EQ(back.GetUniqueID(), 32);
}

TEST_F(IBaseProjectTest, FailuresRollBackAndAreReportedWithinTheLimit) {
  g_nSerializeErrorMsgBoxMaxCount = 0;
  HostProject host;
  Log boxes;
  EXPECT_EQ(Store(host, true, &boxes), (Bytes{1, 0, 0, 77, 0, 0, 0}));
  EXPECT_EQ(boxes, (Log{"SAVE_DATA|SAVE_DATA" + kWhere +
                        "376\ntypename: zrn::(anonymous namespace)::HostProject"}));
  EXPECT_EQ(g_nSerializeErrorMsgBoxMaxCount, 1);

  const Bytes stored = Store(host);
  IBaseProject plain;
  EXPECT_TRUE(Load(plain, stored, true).empty()); // over the limit: silent
  EXPECT_EQ(plain.GetUniqueID(), 2);              // rolled back, unchanged
  g_nSerializeErrorMsgBoxMaxCount = -1;           // two more
  EXPECT_EQ(Load(plain, stored, true),
            (Log{"LOAD_DATA|LOAD_DATA" + kWhere + "367\ntypename: zrn::IBaseProject"}));
  EXPECT_EQ(Load(plain, stored, true).size(), 1u);
  EXPECT_TRUE(Load(plain, stored, true).empty());
}

// Logs its own and its impl object's destruction, and whether the project's
// device can still be reached from it while it dies.
class Tracked : public IBaseEntity {
  struct Impl : IBaseEntityImpl {
    explicit Impl(Log& sink) : log(sink) {}
    ~Impl() override { log.push_back("impl" + std::to_string(GetBaseEntity()->GetObjectID())); }
    Log& log;
  };

public:
  Tracked(Log& log, long long id, bool stored) : m_log(log) {
    SetObjectID(id);
    SetObjectFlag(stored, EGOBJECT_FLAG_STORED);
    SetImplObject(new Impl(log));
  }
  ~Tracked() override {
    std::string line = std::to_string(GetObjectID());
    m_log.push_back(line.insert(0, 1, '~') + (GetDBDevice() ? "+dev" : ""));
  }

private:
  Log& m_log;
};

constexpr EGOBJECT_FLAG kModified = EGOBJECT_FLAG_MODIFIED;
constexpr EGOBJECT_FLAG kSwapped = EGOBJECT_FLAG_SWAPPED;
constexpr EGOBJECT_FLAG kBoth = EGOBJECT_FLAG(kModified | kSwapped);

TEST_F(IBaseProjectTest, EntityFlagsAndIdsFollowTheFacadeRules) {
  SetIOFacade(&facade);
  IBaseEntity free;
  free.SetObjectFlag(true, kSwapped);
  EXPECT_FALSE(free.HasObjectFlag(kModified));
  free.SetObjectFlag(true, EGOBJECT_FLAG(kModified | EGOBJECT_FLAG_NO_MODIFY));
  EXPECT_FALSE(free.HasObjectFlag(kSwapped)); // NO_MODIFY needs a project with a device

  auto* locked = new IBaseEntity();
  auto* plain = new IBaseEntity();
  project.AddChild(locked);
  project.AddChild(plain);
  locked->SetObjectFlag(true, EGOBJECT_FLAG(kSwapped | EGOBJECT_FLAG_NO_MODIFY));
  locked->SetObjectFlag(true, kModified);
  EXPECT_TRUE(locked->HasObjectFlag(kSwapped) && !locked->HasObjectFlag(kModified));
  plain->SetObjectFlag(true, kBoth);
  EXPECT_TRUE(plain->HasObjectFlag(kBoth));
  plain->SetObjectFlag(false, kModified);

  device->GetDeviceContext().loading = true;
  plain->SetObjectFlag(true, kModified); // dropped: nothing set, nothing cleared
  EXPECT_TRUE(plain->HasObjectFlag(kSwapped) && !plain->HasObjectFlag(kModified));
  auto* loaded = new IBaseEntity();
  plain->AddChild(loaded);
  EXPECT_EQ(loaded->GetObjectID(), 1); // ids come from the store while loading
  EXPECT_TRUE(log.empty());
}

TEST_F(IBaseProjectTest, SwapOutAndBackThroughTheFacade) {
  SetIOFacade(&facade);
  auto* child = new IBaseEntity();
  project.AddChild(child);
  child->GetBaseEntityImpl(true);
  child->SwapDataToDisk();
  EXPECT_TRUE(child->HasObjectFlag(kSwapped) && !child->HasObjectFlag(kModified));
  EXPECT_NE(child->GetBaseEntityImpl(false), nullptr); // fresh, not loaded
  child->SwapDataToDisk();
  child->GetBaseEntityImpl(true);
  EXPECT_EQ(log, (Log{"Out2", "Out2", "In2"}));
  EXPECT_TRUE(child->HasObjectFlag(kSwapped)); // the facade's to clear
}

TEST_F(IBaseProjectTest, DeletionRecordsStoredNodesInPreOrder) {
  SetIOFacade(&facade);
  // 10 -> (11 -> 12, 13 unstored -> 14), 20
  auto* a = new Tracked(log, 10, true);
  auto* b = new Tracked(log, 11, true);
  auto* c = new Tracked(log, 13, false);
  b->AddChild(new Tracked(log, 12, true));
  c->AddChild(new Tracked(log, 14, true));
  a->AddChild(b);
  a->AddChild(c);
  project.AddChild(a);
  project.AddChild(new Tracked(log, 20, true));

  EXPECT_TRUE(project.DeleteChild(a));
  std::vector<long long> ids;
  device->GetObjectsState().GetDeleteList(ids);
  EXPECT_EQ(ids, (std::vector<long long>{10, 11, 12, 14}));
  EXPECT_EQ(log, (Log{"~10+dev", "impl10", "~11+dev", "impl11", "~12+dev", "impl12", "~13+dev",
                      "impl13", "~14+dev", "impl14"}));

  device->GetDeviceContext().suppressDeleteLog = true;
  project.DeleteAllChild();
  device->GetDeviceContext().suppressDeleteLog = false;
  device->GetObjectsState().GetDeleteList(ids);
  EXPECT_EQ(ids.size(), 4u);

  log.clear();
  auto* other = new IBaseProject();
  other->SetProjectDBDevice(new TestDevice(log));
  other->AddChild(new Tracked(log, 40, true));
  delete other; // its device goes first: nothing recorded, nothing found
  EXPECT_EQ(log, (Log{"~40", "impl40"}));
}

} // namespace
} // namespace zrn

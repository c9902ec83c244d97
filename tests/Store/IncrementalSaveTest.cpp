// Saves after the first: only what changed is written, deletions recorded in
// the device's list remove their rows, and a failed save changes nothing.
#include "Store/StoreTestSupport.h"

#include <algorithm>

namespace zrn::test {
namespace {

using IncrementalSave = StoreTest;

// A project with `count` notes under the root, and two of them with three
// children each.
std::unique_ptr<IBaseProject> NotesProject(int count) {
  auto project = std::make_unique<IBaseProject>();
  for (int i = 0; i < count; ++i)
    AddNote(project.get(), "n" + std::to_string(i), i);
  for (int parent : {1, 2})
    for (int i = 0; i < 3; ++i)
      AddNote(project->GetAllChild()[parent], "c", i);
  return project;
}

TEST_F(IncrementalSave, WritesOnlyWhatChanged) {
  auto project = NotesProject(200);
  const std::size_t total = AllEntities(project.get()).size();
  ASSERT_TRUE(Save(*project)) << DeviceOf(*project).LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), total);

  ASSERT_TRUE(Save(*project));
  EXPECT_EQ(facade.LastSaveRowCount(), 0u);

  auto const& children = project->GetAllChild();
  for (int i : {0, 3, 50, 51, 120, 198, 199})
    ChangeNote(children[i], "changed", -i);
  ASSERT_TRUE(Save(*project)) << DeviceOf(*project).LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), 7u);
  ASSERT_TRUE(Save(*project));
  EXPECT_EQ(facade.LastSaveRowCount(), 0u);

  auto loaded = Load(false);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(Describe(loaded.get(), facade.Types()), Describe(project.get(), facade.Types()));
  EXPECT_EQ(NoteOf(loaded->GetAllChild()[120])->text, "changed");
}

TEST_F(IncrementalSave, ReloadedProjectSavesOnlyItsChanges) {
  auto project = NotesProject(20);
  ASSERT_TRUE(Save(*project)) << DeviceOf(*project).LastError();
  project.reset();

  auto loaded = Load(false);
  ASSERT_TRUE(loaded);
  ASSERT_TRUE(Save(*loaded, Path())) << DeviceOf(*loaded).LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), 0u);
  ChangeNote(loaded->GetAllChild()[4], "four", 4000);
  ASSERT_TRUE(Save(*loaded, Path())) << DeviceOf(*loaded).LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), 1u);
  loaded.reset();

  auto again = Load(true);
  ASSERT_TRUE(again);
  EXPECT_EQ(NoteOf(again->GetAllChild()[4])->number, 4000);
  EXPECT_EQ(NoteOf(again->GetAllChild()[5])->text, "n5");
}

TEST_F(IncrementalSave, ChildrenAppendedToStoredParentsKeepTheirOrder) {
  auto project = NotesProject(5);
  const long long reserved = project->GetUniqueID(); // lower than every later id
  ASSERT_TRUE(Save(*project)) << DeviceOf(*project).LastError();
  project.reset();

  auto loaded = Load(false);
  ASSERT_TRUE(loaded);
  IBaseEntity* parent = loaded->GetAllChild()[1];
  AddNote(parent, "appended", 1);
  AddNote(loaded.get(), "appended to the root", 2);
  auto* early = new CNoteEntity; // an id lower than the sibling appended before it
  early->SetObjectID(reserved);
  NoteOf(early)->text = "reserved";
  parent->AddChild(early);
  AddNote(parent, "after the reserved one", 3);
  ASSERT_TRUE(Save(*loaded, Path())) << DeviceOf(*loaded).LastError();
  const auto expected = Describe(loaded.get(), facade.Types());
  loaded.reset();

  for (bool eager : {true, false}) {
    SCOPED_TRACE(eager ? "eager" : "lazy");
    auto again = Load(eager);
    ASSERT_TRUE(again);
    EXPECT_EQ(Describe(again.get(), facade.Types()), expected);
  }
}

TEST_F(IncrementalSave, DeletedSubtreeLosesItsRows) {
  auto project = NotesProject(10);
  IBaseEntity* doomed = project->GetAllChild()[2];
  AddNote(doomed->GetAllChild()[0], "grandchild");
  ASSERT_TRUE(Save(*project)) << DeviceOf(*project).LastError();
  std::vector<long long> doomedIds;
  for (IBaseEntity* e : AllEntities(doomed))
    doomedIds.push_back(e->GetObjectID());
  const long long doomedId = doomed->GetObjectID();

  ASSERT_TRUE(project->DeleteChild(doomed));
  auto& device = DeviceOf(*project);
  std::vector<long long> logged;
  device.GetObjectsState().GetDeleteList(logged);
  std::sort(logged.begin(), logged.end());
  std::sort(doomedIds.begin(), doomedIds.end());
  ASSERT_EQ(logged, doomedIds);

  ASSERT_TRUE(Save(*project)) << device.LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), doomedIds.size());
  logged.clear();
  device.GetObjectsState().GetDeleteList(logged);
  EXPECT_TRUE(logged.empty());

  std::vector<CVariant> rows;
  device.QueryColumn("EntityTable", {"ID"}, "PID", doomedId, rows);
  EXPECT_TRUE(rows.empty());
  {
    RawDb raw(Narrow());
    std::string list;
    for (long long id : doomedIds)
      list += (list.empty() ? "" : ",") + std::to_string(id);
    EXPECT_EQ(raw.Integer("SELECT count(*) FROM EntityTable WHERE ID IN (" + list + ")"), 0);
    EXPECT_EQ(raw.Integer("SELECT count(*) FROM EntityTable"),
              static_cast<long long>(AllEntities(project.get()).size()));
  }
  auto loaded = Load(true);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(Describe(loaded.get(), facade.Types()), Describe(project.get(), facade.Types()));
}

TEST_F(IncrementalSave, SuppressedDeleteLogKeepsTheRows) {
  auto project = NotesProject(10);
  ASSERT_TRUE(Save(*project)) << DeviceOf(*project).LastError();
  auto& device = DeviceOf(*project);
  IBaseEntity* kept = project->GetAllChild()[1]; // has three children
  const long long keptId = kept->GetObjectID();

  device.GetDeviceContext().suppressDeleteLog = true;
  ASSERT_TRUE(project->DeleteChild(kept));
  device.GetDeviceContext().suppressDeleteLog = false;
  std::vector<long long> logged;
  device.GetObjectsState().GetDeleteList(logged);
  EXPECT_TRUE(logged.empty());

  ASSERT_TRUE(Save(*project)) << device.LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), 0u);
  RawDb raw(Narrow());
  EXPECT_EQ(raw.Integer("SELECT count(*) FROM EntityTable WHERE ID = " + std::to_string(keptId) +
                        " OR PID = " + std::to_string(keptId)),
            4);
}

TEST_F(IncrementalSave, FailedSaveChangesNeitherMemoryNorFile) {
  auto project = NotesProject(10);
  ASSERT_TRUE(Save(*project)) << DeviceOf(*project).LastError();
  const auto saved = Describe(project.get(), facade.Types());

  IBaseEntity* changed = project->GetAllChild()[3];
  ChangeNote(changed, "lost", 1);
  auto* added = AddNote(project.get(), "added too");
  IBaseEntity* deleted = project->GetAllChild()[7];
  const long long deletedId = deleted->GetObjectID();
  project->DeleteChild(deleted);
  project->AddChild(new CStrangerEntity); // no type id: the save cannot store it

  EXPECT_FALSE(Save(*project));
  auto& device = DeviceOf(*project);
  EXPECT_FALSE(device.LastError().empty());
  EXPECT_TRUE(changed->HasObjectFlag(EGOBJECT_FLAG_MODIFIED));
  EXPECT_FALSE(added->HasObjectFlag(EGOBJECT_FLAG_STORED));
  std::vector<long long> logged;
  device.GetObjectsState().GetDeleteList(logged);
  EXPECT_EQ(logged, std::vector<long long>{deletedId});

  auto loaded = Load(true);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(Describe(loaded.get(), facade.Types()), saved);

  // Without the stranger, the same changes then go through.
  project->DeleteChild(project->GetAllChild().back());
  ASSERT_TRUE(Save(*project)) << device.LastError();
  loaded = Load(true);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(Describe(loaded.get(), facade.Types()), Describe(project.get(), facade.Types()));
}

// A save to a file other than the one the tree was stored in writes every
// entity, swapped-out ones included.
TEST_F(IncrementalSave, SavingUnderAnotherPathWritesTheWholeTree) {
  auto project = NotesProject(6);
  ASSERT_TRUE(Save(*project)) << DeviceOf(*project).LastError();
  project.reset();
  auto loaded = Load(false); // swapped out: the data is still in the first file
  ASSERT_TRUE(loaded);
  ChangeNote(loaded->GetAllChild()[0], "changed", 1);
  ASSERT_TRUE(Save(*loaded, Path("copy.db"))) << DeviceOf(*loaded).LastError();
  std::string error;
  auto copy = Load(Path("copy.db"), true, &error);
  ASSERT_TRUE(copy) << error << " (rows written: " << facade.LastSaveRowCount() << ")";
  EXPECT_EQ(Describe(copy.get(), facade.Types()), Describe(loaded.get(), facade.Types()));
}

} // namespace
} // namespace zrn::test

// Entity data dropped from memory and fetched back: what comes back, how it
// is flagged, when it reaches the file, and what a second connection sees
// meanwhile.
#include "Store/StoreTestSupport.h"

namespace zrn::test {
namespace {

class SwapOut : public StoreTest {
protected:
  // A saved project with five notes under the root.
  void SetUp() override {
    for (int i = 0; i < 5; ++i)
      AddNote(&project, "n" + std::to_string(i), i);
    ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();
  }
  // What a second connection reads from the row of `entity`.
  std::pair<std::string, long long> RowOf(IBaseEntity* entity) {
    GSqliteDevice other;
    EXPECT_TRUE(other.Open(Path())) << other.LastError();
    std::string bytes;
    EXPECT_TRUE(other.ReadEntityData(entity->GetObjectID(), bytes)) << other.LastError();
    return ReadNote(bytes);
  }
  IBaseEntity* Child(int i) { return project.GetAllChild()[i]; }

  IBaseProject project;
};

using Note = std::pair<std::string, long long>;

TEST_F(SwapOut, ChangedDataComesBackModifiedAndReachesTheFileOnlyWithTheSave) {
  IBaseEntity* e = Child(2);
  ChangeNote(e, "changed", 22);
  e->SwapDataToDisk();
  EXPECT_TRUE(e->HasObjectFlag(EGOBJECT_FLAG_SWAPPED));
  EXPECT_FALSE(e->HasObjectFlag(EGOBJECT_FLAG_MODIFIED));
  EXPECT_EQ(RowOf(e), Note("n2", 2));

  EXPECT_EQ(NoteOf(e)->text, "changed");
  EXPECT_FALSE(e->HasObjectFlag(EGOBJECT_FLAG_SWAPPED));
  EXPECT_TRUE(e->HasObjectFlag(EGOBJECT_FLAG_MODIFIED));
  EXPECT_EQ(RowOf(e), Note("n2", 2));

  ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), 1u);
  EXPECT_EQ(RowOf(e), Note("changed", 22));
}

TEST_F(SwapOut, SaveWritesDataThatIsStillSwappedOut) {
  IBaseEntity* e = Child(1);
  ChangeNote(e, "while out", 11);
  e->SwapDataToDisk();
  ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), 1u);
  EXPECT_TRUE(e->HasObjectFlag(EGOBJECT_FLAG_STORED));
  EXPECT_EQ(RowOf(e), Note("while out", 11));

  // Saved now, so it comes back clean, and the next save has nothing to do.
  EXPECT_EQ(NoteOf(e)->number, 11);
  EXPECT_FALSE(e->HasObjectFlag(EGOBJECT_FLAG_MODIFIED));
  ASSERT_TRUE(Save(project));
  EXPECT_EQ(facade.LastSaveRowCount(), 0u);

  auto loaded = Load(true);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(NoteOf(loaded->GetAllChild()[1])->text, "while out");
}

TEST_F(SwapOut, CleanDataIsReadFromItsRow) {
  auto loaded = Load(false);
  ASSERT_TRUE(loaded);
  IBaseEntity* e = loaded->GetAllChild()[3];
  for (int round = 0; round < 2; ++round) { // swapped by the load, then by hand
    EXPECT_EQ(NoteOf(e)->text, "n3");
    EXPECT_FALSE(e->HasObjectFlag(EGOBJECT_FLAG_MODIFIED));
    EXPECT_FALSE(e->HasObjectFlag(EGOBJECT_FLAG_SWAPPED));
    e->SwapDataToDisk();
    EXPECT_TRUE(e->HasObjectFlag(EGOBJECT_FLAG_SWAPPED));
  }
  ASSERT_TRUE(Save(*loaded, Path())) << DeviceOf(*loaded).LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), 0u);
}

TEST_F(SwapOut, ReloadEntityDataDiscardsUnsavedChanges) {
  IBaseEntity* e = Child(4);
  ChangeNote(e, "discarded", -1);
  facade.ReloadEntityData(e, project.GetProjectDBDevice());
  EXPECT_EQ(NoteOf(e)->text, "n4");
  EXPECT_FALSE(e->HasObjectFlag(EGOBJECT_FLAG_MODIFIED));
}

TEST_F(SwapOut, NewEntityCanBeSwappedOutBeforeItsFirstSave) {
  auto* fresh = AddNote(&project, "fresh", 5);
  fresh->SwapDataToDisk();
  RawDb raw(Narrow());
  const std::string count =
      "SELECT count(*) FROM EntityTable WHERE ID = " + std::to_string(fresh->GetObjectID());
  EXPECT_EQ(raw.Integer(count), 0);
  ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();
  EXPECT_EQ(raw.Integer(count), 1);
  EXPECT_EQ(RowOf(fresh), Note("fresh", 5));
}

TEST_F(SwapOut, DeletedBeforeTheSaveIsNotWritten) {
  auto* fresh = AddNote(&project, "short-lived", 5);
  const long long id = fresh->GetObjectID();
  fresh->SwapDataToDisk();
  ASSERT_TRUE(project.DeleteChild(fresh));
  IBaseEntity* stored = Child(0);
  ChangeNote(stored, "gone too", 0);
  stored->SwapDataToDisk();
  const long long storedId = stored->GetObjectID();
  ASSERT_TRUE(project.DeleteChild(stored));

  ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();
  RawDb raw(Narrow());
  EXPECT_EQ(raw.Integer("SELECT count(*) FROM EntityTable WHERE ID IN (" + std::to_string(id) +
                        ", " + std::to_string(storedId) + ")"),
            0);
  auto loaded = Load(true);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(Describe(loaded.get(), facade.Types()), Describe(&project, facade.Types()));
}

TEST_F(SwapOut, WithoutADeviceTheDataWaitsInMemory) {
  IBaseProject loose; // no device
  auto* inProject = AddNote(&loose, "in a project", 1);
  CNoteEntity free;
  NoteOf(&free)->text = "free";
  for (IBaseEntity* e : {static_cast<IBaseEntity*>(inProject), static_cast<IBaseEntity*>(&free)}) {
    e->SwapDataToDisk();
    EXPECT_TRUE(e->HasObjectFlag(EGOBJECT_FLAG_SWAPPED));
  }
  EXPECT_EQ(NoteOf(inProject)->text, "in a project");
  EXPECT_EQ(NoteOf(&free)->text, "free");
  EXPECT_FALSE(free.HasObjectFlag(EGOBJECT_FLAG_SWAPPED));
}

} // namespace
} // namespace zrn::test

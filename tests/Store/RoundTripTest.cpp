// Trees saved to a store file and loaded back, eagerly and lazily: shape,
// sibling order, ids, types, persistent flags, impl data and the project's
// id counter.
#include "Store/StoreTestSupport.h"

#include <typeinfo>

namespace zrn::test {
namespace {

class RoundTrip : public StoreTest {
protected:
  // The saved file loads, eagerly and lazily, as `project` is in memory.
  void ExpectLoadsAs(IBaseProject& project) {
    for (bool eager : {true, false}) {
      SCOPED_TRACE(eager ? "eager" : "lazy");
      auto loaded = Load(eager);
      ASSERT_TRUE(loaded);
      EXPECT_EQ(Describe(loaded.get(), facade.Types()), Describe(&project, facade.Types()));
    }
  }
};

// A host's own flag bit.
constexpr auto kHostFlag = static_cast<EGOBJECT_FLAG>(0x100);

// A bit of everything: host and library types, nesting, empty and plain
// impls, NO_MODIFY on an inner node and on a leaf, a host's flag bit.
std::unique_ptr<CNoteProject> MixedProject() {
  auto project = std::make_unique<CNoteProject>();
  NoteOf(project.get())->text = "root";
  NoteOf(project.get())->number = 7;
  auto* alpha = AddNote(project.get(), "alpha", 1);
  auto* marker = new CMarkerEntity;
  alpha->AddChild(marker);
  AddNote(marker, "deep", 3)->SetObjectFlag(true, EGOBJECT_FLAG_NO_MODIFY);
  alpha->AddChild(new IBaseEntity);
  AddNote(project.get(), "", 0);
  auto* frozen = new CMarkerEntity;
  project->AddChild(frozen);
  frozen->SetObjectFlag(true, EGOBJECT_FLAG_NO_MODIFY);
  AddNote(project.get(), "gamma", -5)->SetObjectFlag(true, kHostFlag);
  alpha->SetObjectFlag(true, kHostFlag);
  return project;
}

void ExpectFlags(IBaseEntity* root, bool swapped) {
  for (IBaseEntity* e : AllEntities(root)) {
    SCOPED_TRACE(e->GetObjectID());
    EXPECT_TRUE(e->HasObjectFlag(EGOBJECT_FLAG_STORED));
    EXPECT_FALSE(e->HasObjectFlag(EGOBJECT_FLAG_MODIFIED));
    EXPECT_EQ(e->HasObjectFlag(EGOBJECT_FLAG_SWAPPED), swapped);
  }
}

TEST_F(RoundTrip, MixedTreeComesBackEagerlyAndLazily) {
  auto project = MixedProject();
  const auto saved = Describe(project.get(), facade.Types());
  ASSERT_TRUE(Save(*project)) << DeviceOf(*project).LastError();
  ExpectFlags(project.get(), false);

  for (bool eager : {true, false}) {
    SCOPED_TRACE(eager ? "eager" : "lazy");
    const int created = CNoteImpl::s_nCreated;
    auto loaded = Load(eager);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(typeid(*loaded), typeid(CNoteProject));
    ExpectFlags(loaded.get(), !eager);
    // Eagerly the five notes (root included) are read; lazily none yet.
    EXPECT_EQ(CNoteImpl::s_nCreated - created, eager ? 5 : 0);
    EXPECT_EQ(Describe(loaded.get(), facade.Types()), saved);
    ExpectFlags(loaded.get(), false); // reading data in marks nothing modified

    // The loaded NO_MODIFY entities still refuse to be marked modified.
    for (IBaseEntity* e : AllEntities(loaded.get()))
      if (e->HasObjectFlag(EGOBJECT_FLAG_NO_MODIFY)) {
        e->SetObjectFlag(true, EGOBJECT_FLAG_MODIFIED);
        EXPECT_FALSE(e->HasObjectFlag(EGOBJECT_FLAG_MODIFIED)) << e->GetObjectID();
      }
  }
}

TEST_F(RoundTrip, DeepChainLoadsAndTearsDownWithoutRecursion) {
  constexpr int kDepth = 100000;
  // Built bottom-up and attached at once: adding at the tip of a chain inside
  // a project walks to the root each time.
  IBaseEntity* top = nullptr;
  for (int depth = kDepth; depth >= 1; --depth) {
    auto* node = new CNoteEntity;
    NoteOf(node)->number = depth;
    node->AddChild(top);
    top = node;
  }
  auto project = std::make_unique<IBaseProject>();
  project->AddChild(top);
  std::vector<long long> ids;
  for (IBaseEntity* e : AllEntities(project.get()))
    ids.push_back(e->GetObjectID());
  struct Report {
    std::string phase;
    std::size_t done, total;
  };
  std::vector<Report> reports;
  facade.SetProgress([&](char const* phase, std::size_t done, std::size_t total) {
    reports.push_back({phase, done, total});
  });
  ASSERT_TRUE(Save(*project)) << DeviceOf(*project).LastError();
  auto loaded = Load(false);
  ASSERT_TRUE(loaded);

  std::vector<long long> loadedIds;
  IBaseEntity* walk = loaded.get();
  for (;;) {
    loadedIds.push_back(walk->GetObjectID());
    if (walk->GetAllChild().empty())
      break;
    ASSERT_EQ(walk->GetAllChild().size(), 1u) << "at " << walk->GetObjectID();
    walk = walk->GetAllChild()[0];
  }
  EXPECT_EQ(loadedIds, ids);
  EXPECT_EQ(NoteOf(walk)->number, kDepth);

  // Both phases report, each running forward; a save knows its total.
  ASSERT_FALSE(reports.empty());
  EXPECT_EQ(reports.front().phase, "save");
  EXPECT_EQ(reports.back().phase, "load");
  for (std::size_t i = 0; i < reports.size(); ++i) {
    if (reports[i].phase == "save") {
      EXPECT_LE(reports[i].done, reports[i].total);
    }
    if (i > 0 && reports[i].phase == reports[i - 1].phase) {
      EXPECT_GT(reports[i].done, reports[i - 1].done);
    }
  }
}

TEST_F(RoundTrip, LoadProgressCountsTowardsItsTotal) {
  IBaseProject project;
  for (int i = 0; i < 40000; ++i)
    project.AddChild(new IBaseEntity);
  ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();
  std::vector<std::pair<std::size_t, std::size_t>> loads;
  facade.SetProgress([&](char const* phase, std::size_t done, std::size_t total) {
    if (std::string(phase) == "load")
      loads.emplace_back(done, total);
  });
  ASSERT_TRUE(Load(false));
  ASSERT_FALSE(loads.empty());
  for (auto const& [done, total] : loads)
    EXPECT_EQ(total, 40001u) << done;
}

TEST_F(RoundTrip, WideParentKeepsItsChildrenInOrder) {
  constexpr int kWidth = 50000;
  IBaseProject project;
  for (int i = 0; i < kWidth; ++i)
    AddNote(&project, "n" + std::to_string(i), i);
  ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();
  auto loaded = Load(true);
  ASSERT_TRUE(loaded);
  ASSERT_EQ(ChildIds(loaded.get()), ChildIds(&project));
  for (int i = 0; i < kWidth; ++i) {
    auto* note = NoteOf(loaded->GetAllChild()[i]);
    ASSERT_EQ(note->number, i);
    ASSERT_EQ(note->text, "n" + std::to_string(i));
  }
}

TEST_F(RoundTrip, SiblingsWhoseIdsDoNotIncreaseKeepTheirOrder) {
  IBaseProject project;
  auto* parent = AddNote(&project, "parent");
  const long long low = project.GetUniqueID(), mid = project.GetUniqueID(),
                  high = project.GetUniqueID();
  for (long long id : {high, low, mid}) {
    auto* child = new CNoteEntity;
    child->SetObjectID(id);
    parent->AddChild(child);
  }
  AddNote(parent, "last"); // fresh id, after the explicit ones
  // A second family in id order, which must stay as it is.
  auto* other = AddNote(&project, "other");
  AddNote(other, "a");
  AddNote(other, "b");
  ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();

  ExpectLoadsAs(project);
}

TEST_F(RoundTrip, LargeBlobsAndEmptyImplsSurvive) {
  IBaseProject project;
  std::string big(4 << 20, '\0');
  for (std::size_t i = 0; i < big.size(); ++i)
    big[i] = static_cast<char>(1 + i * 7919 % 255); // no long runs; no NUL, which ends a text
  AddNote(&project, big, 1);
  project.AddChild(new IBaseEntity);
  AddNote(&project, big.substr(0, 1 << 20), 2);
  project.AddChild(new CMarkerEntity);
  ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();
  ExpectLoadsAs(project);
}

TEST_F(RoundTrip, IdCounterContinuesAfterReload) {
  IBaseProject project;
  for (int i = 0; i < 10; ++i)
    AddNote(&project, "n", i);
  const long long lastHandedOut = project.GetAllChild().back()->GetObjectID();
  // The highest ids are gone before the save: no row holds them, yet they
  // must not be handed out again.
  project.DeleteChild(project.GetAllChild().back());
  project.DeleteChild(project.GetAllChild().back());
  ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();

  auto loaded = Load(false);
  ASSERT_TRUE(loaded);
  auto* fresh = AddNote(loaded.get(), "fresh", 99);
  EXPECT_GT(fresh->GetObjectID(), lastHandedOut);
  ASSERT_TRUE(Save(*loaded)) << DeviceOf(*loaded).LastError();
  const long long freshId = fresh->GetObjectID();
  loaded.reset();

  auto again = Load(true);
  ASSERT_TRUE(again);
  ASSERT_EQ(again->GetAllChild().size(), 9u);
  EXPECT_EQ(again->GetAllChild().back()->GetObjectID(), freshId);
  EXPECT_EQ(NoteOf(again->GetAllChild().back())->text, "fresh");
  EXPECT_GT(AddNote(again.get(), "next")->GetObjectID(), freshId);
}

} // namespace
} // namespace zrn::test

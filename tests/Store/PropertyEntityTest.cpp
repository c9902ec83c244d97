// The library's ready-made property entity: registered from the start, and
// its properties saved and read back, also into a process whose property
// scheme numbered the names differently.
#include "Store/StoreTestSupport.h"

#include <zrn/Store/PropertyEntity.h>

namespace zrn::test {
namespace {

class PropertyEntityStore : public StoreTest {
protected:
  void TearDown() override {
    CPropertyCollection::ClearPropertyScheme();
    StoreTest::TearDown();
  }
};

TEST_F(PropertyEntityStore, RegisteredUnderTheLibrarysTypeId) {
  CPropertyEntity entity;
  EXPECT_EQ(facade.Types().TypeOf(entity), CPropertyEntity::kTypeId);
  std::unique_ptr<IBaseEntity> created(facade.Types().Create(CPropertyEntity::kTypeId));
  EXPECT_NE(dynamic_cast<CPropertyEntity*>(created.get()), nullptr);
  // Hosts cannot take the id.
  EXPECT_FALSE(facade.Types().Register<CMarkerEntity>(CPropertyEntity::kTypeId));
}

TEST_F(PropertyEntityStore, PropertiesComeBackLazilyUnderTheProcesssIds) {
  IBaseProject project;
  auto* first = new CPropertyEntity;
  auto* second = new CPropertyEntity;
  project.AddChild(first);
  first->AddChild(second);
  first->Properties().SetProperty(L"width", CVariant(2.5));
  first->Properties().SetProperty(L"name", CVariant(std::wstring(L"beam")));
  second->Properties().SetProperty(L"colour", CVariant(CColor::Teal));
  ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();

  // Another numbering in the reading process: "name" comes first there.
  CPropertyCollection::ClearPropertyScheme();
  CPropertyEntityImpl other;
  other.Properties().SetProperty(L"name", CVariant(1));

  auto loaded = Load(false);
  ASSERT_TRUE(loaded);
  ASSERT_EQ(loaded->GetAllChild().size(), 1u);
  auto* back = dynamic_cast<CPropertyEntity*>(loaded->GetAllChild()[0]);
  ASSERT_NE(back, nullptr);
  EXPECT_TRUE(back->HasObjectFlag(EGOBJECT_FLAG_SWAPPED));
  EXPECT_EQ(back->Properties().GetProperty(L"width").toDouble(), 2.5);
  EXPECT_EQ(back->Properties().GetProperty(L"name").toWString(), L"beam");
  auto* child = dynamic_cast<CPropertyEntity*>(back->GetAllChild().at(0));
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->Properties().GetProperty(L"colour").toColor(), CColor::Teal);
  EXPECT_TRUE(child->Properties().GetProperty(L"width").IsNull());
}

} // namespace
} // namespace zrn::test

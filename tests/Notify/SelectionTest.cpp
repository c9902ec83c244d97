#include <zrn/Notify/Selection.h>
#include <zrn/Object/IBase.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zrn {
namespace {

// Writes every announcement as "+a,b" (added) or "-a" (removed).
class Announcements final : public IObserver {
public:
  explicit Announcements(std::vector<IBase> const& objects) : m_objects(objects) {}
  void Update(unsigned int code, void* data) override {
    std::string line = code == SELECTION_ADDED ? "+" : code == SELECTION_REMOVED ? "-" : "?";
    for (IBase* object : *static_cast<std::vector<IBase*>*>(data))
      line += std::string(1, static_cast<char>('a' + (object - m_objects.data()))) + ",";
    lines.push_back(line.substr(0, line.size() - 1));
  }
  std::vector<std::string> lines;

private:
  std::vector<IBase> const& m_objects;
};

struct TypeFive final : ICheckCondition {
  bool CheckObject(IBase*) override { return true; }
  unsigned int GetCheckType(IBase*) override { return 5; }
};

class GSelectionTest : public ::testing::Test {
protected:
  GSelectionTest() : m_objects(4), m_heard(m_objects), m_selection(&m_subject) {
    m_subject.Attach(&m_heard);
  }
  IBase* Object(char name) { return &m_objects[static_cast<std::size_t>(name - 'a')]; }

  std::vector<IBase> m_objects;
  Announcements m_heard;
  GSubject m_subject;
  GSelection m_selection;
};

TEST_F(GSelectionTest, SingleModeReplacesTheSelection) {
  m_selection.SetMode(true);
  EXPECT_TRUE(m_selection.Add(Object('a')));
  EXPECT_TRUE(m_selection.Add(Object('b')));
  EXPECT_FALSE(m_selection.Add(Object('b'))); // already selected: nothing happens
  EXPECT_TRUE(m_selection.Add(std::vector<IBase*>{Object('c'), Object('d')}));
  EXPECT_EQ(m_heard.lines, (std::vector<std::string>{"+a", "-a", "+b", "-b", "+c"}));
  EXPECT_EQ(m_selection.GetCount(), 1u);
}

TEST_F(GSelectionTest, MasksApplyOnlyWithACondition) {
  m_selection.AddMaskType(3);
  EXPECT_TRUE(m_selection.Add(Object('a'))); // no condition: masks not applied
  TypeFive condition;
  m_selection.SetCondition(&condition);
  EXPECT_FALSE(m_selection.Add(Object('b')));
  m_selection.AddMaskType(5);
  EXPECT_TRUE(m_selection.Add(Object('b')));
  EXPECT_TRUE(m_selection.IsAccepted(5));
  m_selection.ResetMask();
  EXPECT_TRUE(m_selection.IsAccepted(99));
  EXPECT_FALSE(m_selection.Add(static_cast<IBase*>(nullptr)));
}

TEST_F(GSelectionTest, VectorsAnnounceOnceInInputOrder) {
  m_selection.Add(Object('b'));
  EXPECT_FALSE(
      m_selection.Add(std::vector<IBase*>{Object('d'), Object('b'), nullptr, Object('a')}));
  EXPECT_FALSE(m_selection.Remove(std::vector<IBase*>{Object('c')})); // none selected: silent
  EXPECT_FALSE(m_selection.Remove(std::vector<IBase*>{Object('a'), Object('c'), Object('d')}));
  EXPECT_EQ(m_heard.lines, (std::vector<std::string>{"+b", "+d,a", "-a,d"}));
  m_selection.Add(Object('c'));
  m_selection.RemoveAll();
  EXPECT_EQ(m_heard.lines.back(), "-b,c"); // address order
  EXPECT_TRUE(m_selection.IsEmpty());
}

TEST_F(GSelectionTest, DeletedObjectsLeaveTheSelection) {
  GSubject deletions;
  deletions.Attach(&m_selection);
  m_selection.Add(Object('a'));
  m_selection.Add(Object('c'));
  std::vector<IBase*> deleted{Object('a'), Object('b'), Object('c')};
  deletions.Notify(OBJECTS_DELETED, &deleted);
  deletions.Notify(SELECTION_ADDED, &deleted); // not a code a selection handles
  EXPECT_EQ(m_heard.lines, (std::vector<std::string>{"+a", "+c", "-a", "-c"}));
  EXPECT_TRUE(m_selection.IsEmpty());
  deletions.Detach(&m_selection);
}

TEST(GSelection, WorksWithoutASubject) {
  IBase a;
  GSelection selection(nullptr);
  EXPECT_TRUE(selection.Add(&a));
  EXPECT_TRUE(selection.IsIn(&a));
  EXPECT_TRUE(selection.Remove(&a));
  EXPECT_FALSE(selection.Remove(&a));
  auto* owned = new GSelection(nullptr);
  owned->Destroy();
}

} // namespace
} // namespace zrn

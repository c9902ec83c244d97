#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>
#include <zrn/Object/IBase.h>
#include <zrn/Object/RefPtr.h>
#include <zrn/Property/PropertyCollection.h>

#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zrn {
namespace {

using test::Bytes;
using Collection = CPropertyCollection;

class Thing : public IBase {
public:
  explicit Thing(int type) : m_nType(type) {}
  eGBMDataType GetObjectType() override { return static_cast<eGBMDataType>(m_nType); }

private:
  int m_nType;
};

// The schemes are process-wide: every test starts and ends with empty ones.
class PropertyCollectionTest : public ::testing::Test {
protected:
  void SetUp() override { Collection::ClearPropertyScheme(); }
  void TearDown() override { Collection::ClearPropertyScheme(); }

  Thing m_a{9001};
  Thing m_b{9002};
};

// Serializes `collections` in order into one archive.
Bytes Store(std::vector<Collection*> const& collections) {
  GMemStream stream(true, nullptr, 0);
  GDbArchiveImpl ar(&stream);
  for (Collection* c : collections)
    c->Serialize(ar);
  return test::Written(stream);
}

// Reads `collections` in order from one archive over `bytes`.
void Load(Bytes const& bytes, std::vector<Collection*> const& collections) {
  CRefPtr<GMemStream> stream(test::LoadingStream(bytes));
  GDbArchiveImpl ar(stream.get());
  for (Collection* c : collections)
    EXPECT_TRUE(c->Serialize(ar));
}

TEST_F(PropertyCollectionTest, IdsAreSharedWithinAClassAndCountedApartPerClass) {
  Collection one(&m_a), two(&m_a), other(&m_b);
  EXPECT_EQ(Collection::m_mapAllProducutID.at(L"ZRN"), 1);
  one.SetProperty(L"width", CVariant(5));
  one.SetProperty(L"height", CVariant(6));
  EXPECT_EQ(one.GetPropertyID(L"width"), 1025);
  EXPECT_EQ(two.GetPropertyID(L"height"), 1026); // shared by the class
  EXPECT_TRUE(two.GetProperty(L"height").IsNull());
  EXPECT_EQ(one.GetProperty(1026).toInt(), 6);
  EXPECT_EQ(one.GetPropertyID(L"missing"), 0);
  EXPECT_TRUE(one.GetProperty(L"missing").IsNull());

  other.SetProperty(L"height", CVariant(1));
  EXPECT_EQ(other.GetPropertyID(L"height"), 1025);
}

TEST_F(PropertyCollectionTest, EachProductNumbersItsOwnIds) {
  Collection one(&m_a);
  one.SetProperty(L"width", CVariant(5));
  one.SetActiveProduct(L"EXT");
  one.SetActiveProduct(L"EXT");
  EXPECT_EQ(Collection::m_mapAllProducutID.at(L"EXT"), 2);
  EXPECT_EQ(one.GetPropertyID(L"width"), 0); // not in this product
  one.SetProperty(L"width", CVariant(7));
  EXPECT_EQ(one.GetPropertyID(L"width"), 2 * 1024 + 1);
  std::wstring product, name;
  one.GetPropertyName(Collection::sPropertyID(2049), product, name);
  EXPECT_EQ(product + L"/" + name, L"EXT/width");
}

TEST_F(PropertyCollectionTest, RemovingAValueKeepsTheNameInTheScheme) {
  Collection one(&m_a);
  one.SetActiveProduct(L"EXT");
  one.SetProperty(L"width", CVariant(7));
  one.RemoveProperty(L"width");
  EXPECT_TRUE(one.GetProperty(2049).IsNull());
  EXPECT_EQ(one.GetPropertyID(L"width"), 2049);
}

TEST_F(PropertyCollectionTest, AFullProductRefusesNewNamesRatherThanWrapping) {
  // The index has 10 bits: the 1,024th name must not wrap onto index 0.
  Collection one(&m_a);
  one.SetProperty(L"width", CVariant(5));
  one.SetProperty(L"height", CVariant(6));
  for (int i = 0; i < 1021; ++i)
    EXPECT_NE(one.AssignPropertyID(L"ZRN", 0, L"n" + std::to_wstring(i)), 0);
  EXPECT_EQ(one.AssignPropertyID(L"ZRN", 0, L"full"), 0);
  one.SetProperty(L"full", CVariant(1));
  EXPECT_EQ(one.GetPropertyID(L"full"), 0);
}

TEST_F(PropertyCollectionTest, StreamBytesAndSchemeOncePerArchive) {
  Collection first(&m_a), second(&m_a);
  first.SetProperty(L"a", CVariant(7));
  const Bytes bytes = Store({&first, &second});
  const Bytes expected{1,    1, // due, first scheme of the archive
                       1,    0,    0, 0, 3,    0,    0, 0, 'Z', 0, 'R', 0, 'N', 0,
                       1,                                                          // product table
                       0x29, 0x23, 0, 0,                                           // class 9001
                       1,    0,    0, 0, 3,    0,    0, 0, 'Z', 0, 'R', 0, 'N', 0, // one product
                       1,    0,    0, 0, 0x01, 0x04, 1, 0, 0,   0, 'a', 0,         // 1025 = "a"
                       1,    0,    0, 0, 0x01, 0x04, 1, 0, 0,   0, 7,   0, 0,   0, // values
                       0,    0,    0, 0, 0}; // second: not due, no values
  EXPECT_EQ(bytes, expected);
}

// Writer: ZRN 1, EXT 2; class a has a=1025, b=1026; class b has EXT x=2049.
Bytes WrittenBy(IBase* a, IBase* b) {
  Collection w1(a), w2(a), w3(b);
  w1.SetProperty(L"a", CVariant(1));
  w1.SetProperty(L"b", CVariant(std::wstring(L"two")));
  w2.SetProperty(L"b", CVariant(3));
  w3.SetActiveProduct(L"EXT");
  w3.SetProperty(L"x", CVariant(4));
  return Store({&w1, &w2, &w3});
}

TEST_F(PropertyCollectionTest, AFreshReaderAdoptsTheWrittenSchemes) {
  const Bytes bytes = WrittenBy(&m_a, &m_b);
  Collection::ClearPropertyScheme();
  Collection f1(&m_a), f2(&m_a), f3(&m_b);
  Load(bytes, {&f1, &f2, &f3});
  EXPECT_EQ(f1.GetPropertyID(L"b"), 1026);
  EXPECT_EQ(f1.GetProperty(L"b").toWString(), L"two");
  EXPECT_EQ(f3.GetProperty(2049).toInt(), 4);
}

TEST_F(PropertyCollectionTest, AReaderThatNumberedOtherwiseTranslatesIds) {
  const Bytes bytes = WrittenBy(&m_a, &m_b);
  // b is 1025 here, and product number 2 is OTHER, so EXT becomes 3 and
  // class b's ids move with it.
  Collection::ClearPropertyScheme();
  Collection r1(&m_a), r2(&m_a), r3(&m_b);
  r1.SetProperty(L"b", CVariant(0));
  r1.SetActiveProduct(L"OTHER");
  r1.SetActiveProduct(L"ZRN");
  Load(bytes, {&r1, &r2, &r3});
  EXPECT_EQ(r1.GetPropertyID(L"b"), 1025);
  EXPECT_EQ(r1.GetPropertyID(L"a"), 1026);
  EXPECT_EQ(r1.GetProperty(L"a").toInt(), 1);
  EXPECT_EQ(r1.GetProperty(L"b").toWString(), L"two");
  EXPECT_EQ(r2.GetProperty(L"b").toInt(), 3); // translations outlive the scheme part
  EXPECT_EQ(r2.GetProperty(1026).IsNull(), true);
  r3.SetActiveProduct(L"EXT");
  EXPECT_EQ(r3.GetPropertyID(L"x"), 3 * 1024 + 1);
  EXPECT_EQ(r3.GetProperty(L"x").toInt(), 4);
}

// "early" in ZRN, "late" in EXT; EXT is left active.
void FillTwoProducts(Collection& c) {
  c.SetActiveProduct(L"EXT");
  c.SetProperty(L"late", CVariant(2));
  c.SetActiveProduct(L"ZRN");
  c.SetProperty(L"early", CVariant(std::string("s")));
  c.SetActiveProduct(L"EXT");
}

TEST_F(PropertyCollectionTest, IterationGoesByProductAndLeavesOutputsAtTheEnd) {
  Collection c(&m_a);
  FillTwoProducts(c);
  std::wstring product, name;
  CVariant value;
  std::vector<std::wstring> seen;
  c.First();
  while (c.Next(product, name, value))
    seen.push_back(product + L"/" + name + L"=" + value.toWString());
  EXPECT_EQ(seen, (std::vector<std::wstring>{L"ZRN/early=s", L"EXT/late=2"}));
  EXPECT_FALSE(c.Next(product, name, value));
  EXPECT_EQ(name, L"late");
}

TEST_F(PropertyCollectionTest, ACopyTakesObjectAndProductAndOwnsItsValues) {
  Collection c(&m_a);
  FillTwoProducts(c);
  Collection copy(c);
  EXPECT_EQ(copy.GetProperty(L"late").toInt(), 2);
  c.SetProperty(L"late", CVariant(9));
  EXPECT_EQ(copy.GetProperty(L"late").toInt(), 2);
}

TEST_F(PropertyCollectionTest, AssignmentKeepsTheTargetsObjectAndProduct) {
  Collection c(&m_a);
  FillTwoProducts(c);
  c.SetProperty(L"late", CVariant(9));
  Collection other(&m_b);
  other = c;
  EXPECT_EQ(other.GetProperty(1025).toString(), "s");
  EXPECT_TRUE(other.GetProperty(L"late").IsNull()); // class b has no such name
  other.CopyFrom(other);
  EXPECT_EQ(other.GetProperty(2049).toInt(), 9);
}

TEST_F(PropertyCollectionTest, TruncatedOrFlippedStreamsStaySafe) {
  Collection w1(&m_a), w2(&m_a);
  w1.SetProperty(L"name", CVariant(std::wstring(L"value")));
  w1.SetProperty(L"n", CVariant(1.5));
  w2.SetProperty(L"n", CVariant(2));
  const Bytes good = Store({&w1, &w2});
  for (std::size_t cut = 0; cut < good.size(); ++cut) {
    for (int flip = 0; flip < 2; ++flip) {
      Bytes bad =
          flip ? good : Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(cut));
      if (flip)
        bad[cut] ^= 0xFF;
      Collection::ClearPropertyScheme();
      Collection r1(&m_a), r2(&m_a);
      Load(bad, {&r1, &r2});
    }
  }
}

TEST_F(PropertyCollectionTest, HugeCountsEndAtOnceAndNegativeOnesAreEmpty) {
  Collection r(&m_a);
  r.SetProperty(7, CVariant(1));
  Load(Bytes{0, 0xFF, 0xFF, 0xFF, 0x7F, 1, 0}, {&r});
  EXPECT_TRUE(r.GetProperty(7).IsNull());
  Load(Bytes{1, 0, 0x29, 0x23, 0, 0, 0xFF, 0xFF, 0xFF, 0x7F}, {&r});
  Load(Bytes{0, 0xFF, 0xFF, 0xFF, 0xFF}, {&r});
}

// A scheme naming "a" twice and using index 0: both ids of "a" end at one id,
// and the index-0 entry is ignored.
TEST_F(PropertyCollectionTest, ASchemeNamingOneNameTwiceEndsAtOneId) {
  Collection s(&m_a);
  Load(Bytes{1,    0,    0x29, 0x23, 0,    0,    1,   0, 0,    0,    3, 0, 0, 0, 'Z', 0,
             'R',  0,    'N',  0,    3,    0,    0,   0, 0x01, 0x04, 1, 0, 0, 0, 'a', 0,
             0x02, 0x04, 1,    0,    0,    0,    'a', 0, 0x00, 0x04, 1, 0, 0, 0, 'z', 0, //
             1,    0,    0,    0,    0x02, 0x04, 1,   0, 0,    0,    5, 0, 0, 0},
       {&s});
  auto const& scheme = Collection::m_mapAllClassScheme.at(static_cast<eGBMDataType>(9001))
                           .m_mapProductScheme.at(L"ZRN");
  EXPECT_EQ(scheme.m_mapIDToName.size(), 1u);
  EXPECT_EQ(scheme.m_mapNameToID.size(), 1u);
  EXPECT_EQ(s.GetProperty(L"a").toInt(), 5);
}

} // namespace
} // namespace zrn

#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>
#include <zrn/Object/IBase.h>
#include <zrn/Object/ObjectFactory.h>
#include <zrn/Object/RefPtr.h>
#include <zrn/Property/Variant.h>

#include "Support/Bytes.h"

#include <gtest/gtest.h>

namespace zrn {
namespace {

using test::Bytes;

struct Counted : CReferenced {};

Bytes Written(CVariant& variant) {
  GMemStream stream(true, nullptr, 0);
  GDbArchiveImpl ar(&stream);
  EXPECT_TRUE(variant.Serialize(ar));
  return test::Written(stream);
}

CVariant ReadBack(Bytes const& bytes, long long* consumed = nullptr) {
  CRefPtr<GMemStream> stream(test::LoadingStream(bytes));
  GDbArchiveImpl ar(stream.get());
  CVariant variant;
  variant.Serialize(ar);
  if (consumed)
    *consumed = ar.DevicePos();
  return variant;
}

TEST(CVariant, PlainValuesAndTypes) {
  CVariant v;
  EXPECT_TRUE(v.IsNull());
  bool ok = true;
  EXPECT_EQ(v.toObjectID(&ok), 0u);
  EXPECT_FALSE(ok);

  v = 5;
  EXPECT_EQ(v.GetVariantStru().m_eType, GBM_INT);
  EXPECT_FALSE(v.GetVariantStru().m_bEmpty);
  v = true;
  EXPECT_EQ(v.GetVariantStru().m_eType, GBM_BOOL);
  EXPECT_EQ(v.GetVariantStru().m_value.ullVal, 1u); // the bytes above stay zero
  EXPECT_EQ(CVariant(-1L).GetVariantStru().m_eType, GBM_INT64);
  EXPECT_EQ(CVariant(1UL).GetVariantStru().m_eType, GBM_UINT64);
  v.SetObjectID(77);
  EXPECT_EQ(v.toObjectID(&ok), 77u);
  EXPECT_TRUE(ok);
  v = v; // self-assignment keeps the value
  EXPECT_EQ(v.toObjectID(), 77u);
}

TEST(CVariant, OwnedObjectsAreCopiedDeeply) {
  CVariant a(std::string("abc"));
  EXPECT_EQ(a.GetVariantStru().m_eType, GBM_STRING);
  EXPECT_TRUE(a.GetVariantStru().m_bObject);
  CVariant b(a);
  b = std::string("changed");
  EXPECT_EQ(a.toString(), "abc");
  a = a.toString() + "d"; // assigning text that the variant derived from itself
  EXPECT_EQ(a.toString(), "abcd");
  a = a;
  EXPECT_EQ(a.toString(), "abcd");

  EXPECT_EQ(CVariant(L"w").GetVariantStru().m_eType, GBM_WSTRING);
  CVariant color(CColor::Red);
  EXPECT_EQ(color.GetVariantStru().m_eType, GBM_COLOR);
  EXPECT_EQ(color.GetValue<CColor>(), CColor::Red);
  EXPECT_EQ(CVariant(3).GetValue<CColor>(), CColor(0, 0, 0, 255));

  CVariant box;
  box = CBox3<double>{{1, 2, 3}, {4, 5, 6}};
  EXPECT_EQ(box.GetVariantStru().m_eType, GBM_LOCAL_BOX);
  EXPECT_EQ(static_cast<LocalBox const*>(box.GetVariantStru().m_value.pVal)->values[5], 6.0);
  CVariant boxCopy(box);
  EXPECT_NE(boxCopy.GetVariantStru().m_value.pVal, box.GetVariantStru().m_value.pVal);
}

TEST(CVariant, HoldsExactlyOneReference) {
  CRefPtr<Counted> object = MakeRef<Counted>();
  {
    CVariant a;
    a.SetValueRefPtr(object.get());
    EXPECT_EQ(a.GetVariantStru().m_eType, GBM_REF_OBJECT); // class not registered
    EXPECT_EQ(a.GetValueRefPtr(), object.get());
    CVariant b(a);
    EXPECT_EQ(object->ReferenceCount(), 3);
    a.SetValueRefPtr(object.get()); // the same object again
    EXPECT_EQ(object->ReferenceCount(), 3);
    b = "text";
    EXPECT_EQ(object->ReferenceCount(), 2);
  }
  EXPECT_EQ(object->ReferenceCount(), 1);

  CVariant db;
  db.SetDBValueRefPtr(object.get(), GBM_PROJECT);
  EXPECT_EQ(db.GetValueRefPtr(), nullptr);
  EXPECT_EQ(db.GetDBValueRefPtr(), object.get());
  EXPECT_EQ(object->ReferenceCount(), 1);
}

TEST(CVariantSerialize, ExactBytesAndRoundTrips) {
  CVariant number(0x01020304);
  EXPECT_EQ(Written(number), (Bytes{1, 0, 0, 0, 4, 3, 2, 1}));
  EXPECT_EQ(ReadBack(Written(number)).toInt(), 0x01020304);

  CVariant null;
  EXPECT_EQ(Written(null), (Bytes{0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_TRUE(ReadBack(Written(null)).IsNull());

  CVariant text("abc");
  const Bytes textBytes{0xE9, 0x03, 0, 0, 1, 0, 1, 3, 0, 0, 0, 'a', 'b', 'c'};
  EXPECT_EQ(Written(text), textBytes);
  CVariant back = ReadBack(textBytes);
  EXPECT_EQ(back.GetVariantStru().m_eType, GBM_STRING);
  EXPECT_TRUE(back.GetVariantStru().m_bObject);
  EXPECT_EQ(back.toString(), "abc");

  CVariant color(CColor::Red);
  EXPECT_EQ(Written(color), (Bytes{0xEC, 0x03, 0, 0, 1, 0, 1, 0xFF, 0, 0, 0xFF}));
  EXPECT_EQ(ReadBack(Written(color)).toColor(), CColor::Red);

  CVariant box;
  box = CBox3<double>{{1, 2, 3}, {4, 5, 6}};
  EXPECT_EQ(Written(box), (Bytes{10, 0, 0, 0})); // no coordinates travel
  EXPECT_EQ(ReadBack(Written(box)).GetVariantStru().m_value.ullVal, 0u);

  for (CVariant plain : {CVariant(true), CVariant('c'), CVariant(short(-3)), CVariant(2.5f),
                         CVariant(-7LL), CVariant(9ULL), CVariant(0.125)}) {
    const Bytes bytes = Written(plain);
    CVariant read = ReadBack(bytes);
    EXPECT_EQ(read.GetVariantStru().m_eType, plain.GetVariantStru().m_eType);
    EXPECT_EQ(read.GetVariantStru().m_value.ullVal, plain.GetVariantStru().m_value.ullVal);
  }
}

// A counted, archivable class registered under a type of this test's own.
constexpr auto kNodeType = static_cast<eGBMDataType>(7101);

struct Node : CReferenced, IBase {
  int value = 0;
  bool Serialize(GDbArchive& ar) override {
    if (ar.IsLoading())
      ar >> value;
    else
      ar << value;
    return true;
  }
};

TEST(CVariantSerialize, CountedObjectsAreRecreatedThroughTheFactory) {
  sClassFunctionPtr record{};
  record.m_strClassName = typeid(Node).name();
  record.m_pfnCreateRefObject = [] { return static_cast<CReferenced*>(new Node); };
  GBaseObjectFactoryHelper registration(kNodeType, record);

  CRefPtr<Node> node = MakeRef<Node>();
  node->value = 42;
  CVariant v;
  v.SetValueRefPtr(node.get());
  EXPECT_EQ(v.GetVariantStru().m_eType, kNodeType);
  const Bytes bytes = Written(v);
  EXPECT_EQ(bytes, (Bytes{0xBD, 0x1B, 0, 0, 1, 1, 0, 42, 0, 0, 0}));
  CVariant back = ReadBack(bytes);
  auto* copy = dynamic_cast<Node*>(back.GetValueRefPtr());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->value, 42);
  EXPECT_EQ(copy->ReferenceCount(), 1);
}

TEST(CVariantSerialize, CorruptStreamsLeaveAValidVariant) {
  long long consumed = 0;
  // An unknown object type with a payload written by the object itself: the
  // payload is skipped as an object.
  CVariant unknown = ReadBack(Bytes{0x40, 0x1F, 0, 0, 1, 1, 0, 1, 0, 0, 9}, &consumed);
  EXPECT_EQ(unknown.GetVariantStru().m_eType, 8000);
  EXPECT_EQ(unknown.GetVariantStru().m_value.pVal, nullptr);
  EXPECT_EQ(consumed, 10);
  CVariant copy(unknown);
  EXPECT_EQ(copy.GetVariantStru().m_eType, 8000);

  // A string whose payload is missing or claims more than there is.
  EXPECT_EQ(ReadBack(Bytes{0xE9, 0x03, 0, 0, 1, 0, 1, 0xFF, 0xFF, 0, 0, 'x'}).toString(), "");
  EXPECT_EQ(ReadBack(Bytes{0xE9, 0x03}).GetVariantStru().m_eType, GBM_NONE);
  EXPECT_EQ(ReadBack(Bytes{2, 0, 0, 0, 1}).toDouble(), 0.0);
}

} // namespace
} // namespace zrn

#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>
#include <zrn/Object/IBase.h>
#include <zrn/Object/ObjectFactory.h>

#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <typeinfo>

namespace zrn {
namespace {

// Types of this test's own, far from the library's.
constexpr auto kMergedType = static_cast<eGBMDataType>(7001);
constexpr auto kFirstOfName = static_cast<eGBMDataType>(7002);
constexpr auto kSecondOfName = static_cast<eGBMDataType>(7003);

void* CopyA(void const*) { return nullptr; }
void* CopyB(void const*) { return nullptr; }
void ReadA(GDbArchive&, void*) {}

sClassFunctionPtr Record(char const* name) {
  sClassFunctionPtr record{};
  record.m_strClassName = name;
  return record;
}

TEST(GBaseObjectFactory, LibraryTypesAreRegisteredAtLoad) {
  GBaseObjectFactory& factory = GetBaseObjectFactory();
  auto* text = static_cast<std::string*>(factory.CreateVoidObject(GBM_STRING));
  ASSERT_NE(text, nullptr);
  EXPECT_TRUE(text->empty());
  factory.GetFunctionPtr(GBM_STRING)->m_pfnDestroyObject(text, GBM_STRING);
  EXPECT_EQ(factory.CreateBaseObject(GBM_STRING), nullptr);

  CReferenced* stream = factory.CreateRefObject(GBM_MEM_STREAM);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->ReferenceCount(), 0);
  EXPECT_NE(dynamic_cast<GMemStream*>(stream), nullptr);
  stream->SignalAndDelete(true);

  EXPECT_EQ(factory.GetDataTypeByClassName(typeid(std::string).name()), GBM_STRING);
  EXPECT_EQ(factory.GetDataTypeByClassName(typeid(unsigned int).name()), GBM_COLOR);
  EXPECT_EQ(factory.GetDataTypeByClassName(typeid(LocalCoord3d).name()), GBM_LOCAL_COORD3D);
  EXPECT_EQ(factory.GetDataTypeByClassName("no such class"), GBM_NONE);
  EXPECT_EQ(factory.GetFunctionPtr(static_cast<eGBMDataType>(12345)), nullptr);
  EXPECT_EQ(factory.CreateVoidObject(static_cast<eGBMDataType>(12345)), nullptr);

  sClassFunctionPtr const& box = *factory.GetFunctionPtr(GBM_LOCAL_BOX);
  const LocalBox source{{1, 2, 3, 4, 5, 6}};
  auto* copy = static_cast<LocalBox*>(box.m_pfnCopyObject(&source));
  EXPECT_EQ(copy->values[5], 6.0);
  EXPECT_EQ(box.m_pfnWriteObject, nullptr);
  box.m_pfnDestroyObject(copy, GBM_LOCAL_BOX);
}

TEST(GBaseObjectFactory, RegisteredWritersUseTheArchive) {
  sClassFunctionPtr const& wide = *GetBaseObjectFactory().GetFunctionPtr(GBM_WSTRING);
  const std::wstring text = L"w";
  GMemStream stream(true, nullptr, 0);
  GDbArchiveImpl ar(&stream);
  wide.m_pfnWriteObject(ar, &text);
  EXPECT_EQ(test::Written(stream), (test::Bytes{1, 0, 0, 0, 'w', 0}));
  stream.SetOpenMode(false);
  std::wstring back;
  wide.m_pfnReadObject(ar, &back);
  EXPECT_EQ(back, L"w");
}

TEST(GBaseObjectFactory, LaterRegistrationsMergeIntoTheFirst) {
  GBaseObjectFactory factory;
  sClassFunctionPtr copyOnly = Record("Merged");
  copyOnly.m_pfnCopyObject = &CopyA;
  factory.RegitsterObjectPointers(kMergedType, copyOnly);
  sClassFunctionPtr readOnly = Record("Renamed");
  readOnly.m_pfnReadObject = &ReadA;
  factory.RegitsterObjectPointers(kMergedType, readOnly);
  sClassFunctionPtr otherCopy = Record("Merged");
  otherCopy.m_pfnCopyObject = &CopyB;
  factory.RegitsterObjectPointers(kMergedType, otherCopy);

  sClassFunctionPtr const* merged = factory.GetFunctionPtr(kMergedType);
  EXPECT_EQ(merged->m_pfnCopyObject, &CopyB);
  EXPECT_EQ(merged->m_pfnReadObject, &ReadA);
  EXPECT_EQ(merged->m_strClassName, "Merged"); // the first name is kept
  EXPECT_EQ(factory.GetDataTypeByClassName("Renamed"), kMergedType);

  GBaseObjectFactoryHelper first(kFirstOfName, Record("Shared name"));
  GBaseObjectFactoryHelper second(kSecondOfName, Record("Shared name"));
  EXPECT_EQ(GetBaseObjectFactory().GetDataTypeByClassName("Shared name"), kSecondOfName);
  EXPECT_NE(GetBaseObjectFactory().GetFunctionPtr(kFirstOfName), nullptr);
}

TEST(IBase, DefaultSerializeIsAnEmptyObjectInEitherDirection) {
  IBase plain;
  EXPECT_EQ(plain.GetObjectType(), GBM_OBJECT);
  GMemStream stream(true, nullptr, 0);
  GDbArchiveImpl ar(&stream);
  ar >> plain; // the archive's direction decides: this writes
  EXPECT_EQ(test::Written(stream), (test::Bytes{1, 0, 0}));
  ar << plain;
  stream.SetOpenMode(false);
  ar << plain; // and this reads
  EXPECT_EQ(stream.pos(), 3);
  EXPECT_TRUE(plain.Serialize(ar));
  EXPECT_EQ(stream.pos(), 6);
}

} // namespace
} // namespace zrn

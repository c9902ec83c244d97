#include <zrn/IO/DataSizeStream.h>
#include <zrn/IO/EndianInfo.h>
#include <zrn/IO/MemStream.h>

#include "Support/DeviceLimits.h"

#include <gtest/gtest.h>

#include <cstring>

namespace zrn {
namespace {

// The size of a stream's buffer, read in loading mode (which rewinds it).
unsigned int BufferSize(GMemStream& stream) {
  stream.SetOpenMode(false);
  return stream.GetDataSize();
}

TEST(GMemStream, OwnedBuffersGrowGeometricallyWithOneByteToSpare) {
  char bytes[200] = {};
  GMemStream stream(true, nullptr, 12345);
  EXPECT_EQ(BufferSize(stream), 200u);
  stream.SetOpenMode(true);
  EXPECT_TRUE(stream.Write(bytes, 200));
  EXPECT_TRUE(stream.Write(bytes, 1));
  EXPECT_EQ(BufferSize(stream), 400u); // max(0 + 200 + 1, 2 x 200), then room enough

  GMemStream fresh;
  EXPECT_TRUE(fresh.Write(bytes, 10));
  EXPECT_EQ(BufferSize(fresh), 11u);
}

TEST(GMemStream, SeekRulesOfOwnedBuffers) {
  GMemStream empty;
  empty.seek(5);
  EXPECT_EQ(empty.pos(), 0);
  const char abcd[] = "abcd";
  empty.Write(const_cast<char*>(abcd), 4);
  EXPECT_EQ(std::memcmp(empty.GetData(), "abcd", 4), 0);
  EXPECT_EQ(BufferSize(empty), 5u);

  char eight[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  GMemStream stream;
  stream.SetData(eight, 8);
  stream.seek(100);
  EXPECT_EQ(stream.pos(), 7);
  stream.seek(-1);
  EXPECT_EQ(stream.pos(), 0);
}

TEST(GMemStream, SetDataAndBoundedReads) {
  char eight[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  GMemStream stream;
  stream.SetData(eight, 0);
  stream.SetData(eight, -5);
  EXPECT_EQ(stream.GetDataSize(), 0u);
  stream.SetData(eight, 8);
  eight[0] = 99; // the stream holds its own copy
  char out[9] = {};
  EXPECT_EQ(stream.Read(out, 8), 8u);
  EXPECT_EQ(out[0], 1);
  EXPECT_EQ(stream.Read(out, 1), 0u);
  EXPECT_EQ(stream.pos(), 8);
  EXPECT_EQ(stream.RemainingSize(), 0);
}

TEST(GMemStream, StoringDataSizeIsThePosition) {
  char bytes[12] = {};
  GMemStream stream(true, nullptr, 0);
  stream.Write(bytes, 12);
  stream.seek(4);
  EXPECT_EQ(stream.GetDataSize(), 4u);
}

TEST(GMemStream, CallerBuffersAreNeverGrownOrOverrun) {
  char buffer[6] = {'-', '-', '-', '-', '-', '!'};
  GMemStream stream(true, buffer, 5);
  char const text[] = "abcdef";
  EXPECT_TRUE(stream.Write(const_cast<char*>(text), 3));
  EXPECT_TRUE(stream.IsGood());
  EXPECT_FALSE(stream.Write(const_cast<char*>(text), 3)); // 3 + 3 > 5: nothing written
  EXPECT_EQ(stream.pos(), 3);
  EXPECT_NE(test::TakeErrorMessage().find("caller's buffer"), std::string::npos);
  // The refusal is for good, or the output would have a hole in it.
  EXPECT_FALSE(stream.Write(const_cast<char*>(text), 2));
  EXPECT_FALSE(stream.IsGood());
  EXPECT_EQ(std::string(buffer, 6), "abc--!");
  EXPECT_NE(test::TakeErrorMessage().find("failed earlier"), std::string::npos);

  // Positions outside the buffer are kept as given, but reach no byte.
  char out[2];
  for (long long outside : {-3LL, 1000LL}) {
    GMemStream other(true, buffer, 5);
    other.seek(outside);
    EXPECT_EQ(other.Read(out, 1), 0u);
    EXPECT_EQ(other.RemainingSize(), 0);
    EXPECT_FALSE(other.Write(out, 1));
    EXPECT_FALSE(other.IsGood());
  }
  EXPECT_EQ(std::string(buffer, 6), "abc--!");
  ErrorCode::Clear();
}

// Guards against output past the size limit being dropped while later, smaller
// writes still succeed.
TEST(GMemStream, AWriteBeyondTheLimitFailsTheStreamForGood) {
  char bytes[256] = {};
  GMemStream stream(true, nullptr, 0);
  DeviceTestAccess::SetMaxSize(stream, 301); // at most 300 bytes of output
  EXPECT_TRUE(stream.Write(bytes, 250));     // the buffer grows to 301
  EXPECT_FALSE(stream.Write(bytes, 51));
  EXPECT_EQ(GetError(), err_failed);
  EXPECT_NE(test::TakeErrorMessage().find("300 bytes"), std::string::npos);
  // Room is left in the buffer, yet nothing more is taken.
  EXPECT_FALSE(stream.Write(bytes, 1));
  EXPECT_FALSE(stream.IsGood());
  EXPECT_EQ(stream.GetDataSize(), 250u);
  EXPECT_EQ(BufferSize(stream), 301u);
  EXPECT_FALSE(GMemStream(stream).IsGood()); // copies keep the failure
  ErrorCode::Clear();
}

TEST(GMemStream, ReadOnlyViewsReadInPlaceAndRefuseWrites) {
  static const char bytes[] = {1, 2, 3, 4};
  GMemStream view(bytes, 4);
  EXPECT_TRUE(view.IsLoading());
  EXPECT_EQ(static_cast<GMemStream const&>(view).GetData(), bytes);
  char out[4] = {};
  EXPECT_EQ(view.Read(out, 4), 4u);
  EXPECT_EQ(out[3], 4);
  view.SetOpenMode(true);
  EXPECT_FALSE(view.Write(out, 1)); // would write into constant bytes
  EXPECT_FALSE(view.IsGood());
  EXPECT_NE(test::TakeErrorMessage().find("read-only"), std::string::npos);

  GMemStream empty(nullptr, 10);
  EXPECT_EQ(empty.GetDataSize(), 0u);
  EXPECT_EQ(empty.Read(out, 1), 0u);
}

TEST(GMemStream, CopiesOwnTheirBytesButShareCallerBuffers) {
  char bytes[4] = {1, 2, 3, 4};
  auto* owned = new GMemStream(true, nullptr, 0);
  owned->Ref();
  owned->Write(bytes, 4);
  GMemStream copy(*owned);
  EXPECT_EQ(copy.ReferenceCount(), 0);
  EXPECT_NE(copy.GetData(), owned->GetData());
  EXPECT_EQ(copy.pos(), 4);
  owned->Unref();
  EXPECT_EQ(copy.GetData()[3], 4);

  GMemStream shared(false, bytes, 4);
  GMemStream other;
  other = shared;
  EXPECT_EQ(other.GetData(), bytes);
}

TEST(GDataSizeStream, CountsWithoutStoring) {
  GDataSizeStream counter;
  counter.Write(nullptr, 4);
  counter.Write(nullptr, 8);
  counter.Write(nullptr, 2);
  EXPECT_EQ(counter.pos(), 14);
  counter.seek(3);
  EXPECT_EQ(counter.pos(), 3);
  EXPECT_EQ(counter.Read(nullptr, 5), 5u);
  EXPECT_TRUE(CEndianInfoMananger::GetInstance()->GetIsLittleEndian());
}

} // namespace
} // namespace zrn

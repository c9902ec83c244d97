#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/FileIOStream.h>

#include "Support/DeviceLimits.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace zrn {
namespace {

constexpr unsigned kMiB = 1u << 20;

class GFileIOStreamTest : public ::testing::Test {
protected:
  // One file per test: tests run in parallel processes.
  GFileIOStreamTest()
      : m_path(std::filesystem::path(::testing::TempDir()) /
               (std::string("zrn_file_device_") +
                ::testing::UnitTest::GetInstance()->current_test_info()->name())) {}
  ~GFileIOStreamTest() override { std::filesystem::remove(m_path); }

  std::string Contents() const {
    std::ifstream in(m_path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  std::filesystem::path m_path;
};

// Bytes whose value says where they belong.
std::string Pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
  return bytes;
}

TEST_F(GFileIOStreamTest, OutputReachesTheFileWholeAtClose) {
  for (std::size_t size :
       {std::size_t{0}, std::size_t{kMiB}, std::size_t{kMiB + 1}, std::size_t{3 * kMiB + 5}}) {
    const std::string bytes = Pattern(size);
    {
      GFileIOStream file(true, m_path.wstring(), false);
      ASSERT_TRUE(file.IsGood());
      EXPECT_TRUE(file.Write(const_cast<char*>(bytes.data()), static_cast<unsigned>(size)));
      EXPECT_EQ(file.pos(), static_cast<long long>(size));
      EXPECT_EQ(std::filesystem::file_size(m_path), 0u); // nothing before close
    }
    EXPECT_EQ(Contents(), bytes) << size;
  }
}

TEST_F(GFileIOStreamTest, BackPatchingAcrossChunkBoundaries) {
  std::string expected = Pattern(2 * kMiB + 10);
  GFileIOStream file(true, m_path.wstring(), false);
  for (std::size_t at = 0; at < expected.size(); at += 1000) // many small writes
    file.Write(expected.data() + at,
               static_cast<unsigned>(std::min<std::size_t>(1000, expected.size() - at)));
  // Patch 8 bytes that straddle the first chunk boundary, then carry on.
  const char patch[] = "PATCHED!";
  EXPECT_TRUE(file.seek(kMiB - 4));
  file.Write(const_cast<char*>(patch), 8);
  expected.replace(kMiB - 4, 8, patch, 8);
  EXPECT_FALSE(file.seek(-1));
  EXPECT_FALSE(file.seek(expected.size() + 1)); // beyond what was written
  EXPECT_EQ(file.pos(), kMiB + 4);
  EXPECT_TRUE(file.seek(static_cast<long long>(expected.size())));
  file.Write(const_cast<char*>("end"), 3);
  expected += "end";
  file.close();
  EXPECT_EQ(Contents(), expected);
}

// Guards against an output that passes the limit being written with the
// refused write missing: the file read back as valid with a block gone.
TEST_F(GFileIOStreamTest, AnOutputPastTheLimitLeavesAnEmptyFile) {
  const std::string block = Pattern(kMiB);
  {
    GFileIOStream file(true, m_path.wstring(), false);
    DeviceTestAccess::SetLimit(file, 3 * kMiB + 100);
    GDbArchiveImpl ar(&file);
    for (int i = 0; i < 3; ++i)
      ar.WriteRawData(const_cast<char*>(block.data()), static_cast<int>(kMiB));
    EXPECT_TRUE(ar.IsAllWriteDataOK());
    ar.WriteRawData(const_cast<char*>(block.data()), 101); // crosses the limit
    EXPECT_FALSE(ar.IsAllWriteDataOK());
    EXPECT_FALSE(file.IsGood());
    EXPECT_EQ(GetError(), err_failed);
    EXPECT_NE(test::TakeErrorMessage().find("3145828 bytes"), std::string::npos);
    // A write that would fit is refused too, whether it comes through the
    // archive (which sends nothing more) or straight to the device.
    ar << 1;
    EXPECT_FALSE(file.Write(const_cast<char*>(block.data()), 10));
    EXPECT_EQ(file.pos(), 3 * kMiB);
    file.close();
    EXPECT_FALSE(file.IsGood());
  }
  ASSERT_TRUE(std::filesystem::exists(m_path));
  EXPECT_EQ(std::filesystem::file_size(m_path), 0u);
  ErrorCode::Clear();
}

TEST_F(GFileIOStreamTest, LoadingReadsThroughTheFile) {
  std::ofstream(m_path, std::ios::binary) << "first line\nsecond\n" << std::string(2500, 'x');
  GFileIOStream file(false, m_path.wstring(), false);
  char head[5] = {};
  EXPECT_EQ(file.Read(head, 5), 5u);
  EXPECT_EQ(std::string(head, 5), "first");
  EXPECT_EQ(file.RemainingSize(), 18 + 2500 - 5);
  file.seek(0);
  std::string line;
  EXPECT_TRUE(file.ReadLine(line));
  EXPECT_EQ(line, "first line");
  EXPECT_TRUE(file.ReadLine(line));
  EXPECT_EQ(line, "second");
  EXPECT_EQ(file.pos(), 18);
  EXPECT_TRUE(file.ReadLine(line));
  EXPECT_EQ(line.size(), 1999u); // a long line comes in pieces
  EXPECT_TRUE(file.ReadLine(line));
  EXPECT_EQ(line.size(), 501u);
  EXPECT_FALSE(file.ReadLine(line));
  EXPECT_EQ(file.Read(head, 5), 0u);

  GFileIOStream missing(false, L"/nonexistent/zrn", false);
  EXPECT_FALSE(missing.IsGood());
  EXPECT_EQ(missing.Read(head, 1), 0u);
}

} // namespace
} // namespace zrn

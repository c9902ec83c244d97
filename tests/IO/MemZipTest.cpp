#include <zrn/IO/MemZip.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace zrn {
namespace {

// What Extract gave, as text; "<null>" for a null result.
std::string ExtractText(CMemZip& zip, const char* name) {
  unsigned long long size = 77; // must be reset
  std::unique_ptr<char[]> bytes(zip.Extract(name, size));
  if (!bytes)
    return size == 0 ? "<null>" : "<null with a size>";
  return std::string(bytes.get(), size);
}

// The finished archive of `zip` as a string.
std::string Flushed(CMemZip& zip) {
  unsigned long long size = 0;
  std::unique_ptr<char, decltype(&std::free)> block(zip.FlushToBytes(size), &std::free);
  return block ? std::string(block.get(), size) : std::string();
}

std::string Pattern(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  std::uint32_t state = seed * 2654435761u + 1;
  for (char& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

bool Add(CMemZip& zip, const char* name, std::string const& data) {
  return zip.Add(name, data.data(), data.size());
}

TEST(CMemZipTest, AddingReplacesAndEntriesReadBackBeforeAnyFlush) {
  const std::string binary = Pattern(100000, 1);
  CMemZip zip;
  ASSERT_TRUE(zip);
  EXPECT_TRUE(Add(zip, "docs/a.txt", "first"));
  EXPECT_TRUE(Add(zip, "docs/a.txt", "second")); // replaces
  EXPECT_TRUE(Add(zip, "binary.bin", binary));
  EXPECT_EQ(ExtractText(zip, "binary.bin"), binary);
  const std::string archive = Flushed(zip);
  EXPECT_EQ(Flushed(zip), archive); // flushing again gives the same bytes
}

// "docs/a.txt" (added twice, "second" last) and "binary.bin", flushed once.
void FillAndFlush(CMemZip& zip, std::string const& binary) {
  Add(zip, "docs/a.txt", "first");
  Add(zip, "docs/a.txt", "second");
  Add(zip, "binary.bin", binary);
  Flushed(zip);
}

// Guards two fixes: an entry added since the last flush is committed before it
// is extracted, and an archive reopened over its own flushed bytes does not let
// the zip library free them.
TEST(CMemZipTest, AFlushedArchiveTakesNewEntriesAndReopensFromItsBytes) {
  const std::string binary = Pattern(100000, 1);
  CMemZip zip;
  FillAndFlush(zip, binary);
  EXPECT_TRUE(zip);
  EXPECT_TRUE(Add(zip, "b", "bee"));
  EXPECT_EQ(ExtractText(zip, "docs/a.txt"), "second");
  const std::string second = Flushed(zip);
  CMemZip reader(second.data(), second.size());
  EXPECT_EQ(ExtractText(reader, "docs/a.txt"), "second");
  EXPECT_EQ(ExtractText(reader, "binary.bin"), binary);
  EXPECT_EQ(ExtractText(reader, "b"), "bee");
  EXPECT_EQ(ExtractText(reader, "DOCS/A.TXT"), "<null>"); // names match exactly
  EXPECT_EQ(ExtractText(reader, "missing"), "<null>");
}

// Guards the fix that stopped the zip library from taking over (and later
// freeing) the caller's bytes when an archive opened over them is edited.
TEST(CMemZipTest, EditingAnArchiveOpenedOverCallersBytesLeavesThemAlone) {
  CMemZip zip;
  FillAndFlush(zip, Pattern(100000, 1));
  Add(zip, "b", "bee");
  const std::string second = Flushed(zip);
  CMemZip reader(second.data(), second.size());
  const std::string callers = second;
  EXPECT_TRUE(Add(reader, "b", "replaced"));
  const std::string edited = Flushed(reader);
  EXPECT_EQ(second, callers);
  CMemZip check(edited.data(), edited.size());
  EXPECT_EQ(ExtractText(check, "b"), "replaced");
}

TEST(CMemZipTest, EmptyEntriesAndArchivesGiveNullSilently) {
  CMemZip zip;
  testing::internal::CaptureStderr();
  unsigned long long size = 5;
  EXPECT_EQ(zip.FlushToBytes(size), nullptr);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(zip.FlushToBytes(size), nullptr);
  EXPECT_FALSE(zip.FlushToFile((testing::TempDir() + "zrn_zip_never.zip").c_str()));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

  EXPECT_TRUE(zip.Add("empty", nullptr, 0));
  EXPECT_TRUE(Add(zip, "full", "x"));
  EXPECT_EQ(ExtractText(zip, "empty"), "<null>");
  const std::string archive = Flushed(zip);
  CMemZip reader(archive.data(), archive.size());
  EXPECT_EQ(ExtractText(reader, "empty"), "<null>");
  EXPECT_EQ(ExtractText(reader, "full"), "x");
}

TEST(CMemZipTest, FilesInAndOut) {
  const std::filesystem::path dir = std::filesystem::path(testing::TempDir()) / "zrn_zip_files";
  std::filesystem::create_directories(dir);
  const std::string content = Pattern(70000, 2);
  std::ofstream(dir / "data.bin", std::ios::binary) << content;
  std::ofstream(dir / "empty.bin", std::ios::binary).flush();

  CMemZip zip;
  EXPECT_FALSE(zip.AddFile("x", (dir / "missing.bin").c_str()));
  EXPECT_FALSE(zip.AddFile("x", (dir / "empty.bin").c_str()));
  EXPECT_FALSE(zip.AddFile("x", dir.c_str()));
  EXPECT_TRUE(zip.AddFile("data.bin", (dir / "data.bin").c_str()));
  EXPECT_FALSE(zip.FlushToFile((dir / "no-such-folder" / "out.zip").c_str()));
  ASSERT_TRUE(zip.FlushToFile((dir / "out.zip").c_str()));

  std::ifstream in(dir / "out.zip", std::ios::binary);
  const std::string archive((std::istreambuf_iterator<char>(in)), {});
  CMemZip reader(archive.data(), archive.size());
  EXPECT_EQ(ExtractText(reader, "data.bin"), content);
  EXPECT_EQ(ExtractText(reader, "x"), "<null>");
  std::filesystem::remove_all(dir);
}

TEST(CMemZipTest, InvalidObjectsRefuseEverything) {
  const std::string garbage = "this is not a zip archive at all, just text";
  for (CMemZip* zip : {new CMemZip(nullptr, 5), new CMemZip(garbage.data(), garbage.size())}) {
    EXPECT_FALSE(*zip);
    EXPECT_FALSE(Add(*zip, "a", "b"));
    EXPECT_EQ(ExtractText(*zip, "a"), "<null>");
    unsigned long long size = 0;
    EXPECT_EQ(zip->FlushToBytes(size), nullptr);
    delete zip;
  }
  CMemZip zip;
  // Refused before a byte is read, so the short buffer is never overrun.
  EXPECT_FALSE(zip.Add("huge", "x", CMemZip::kMaxEntrySize + 1));
  EXPECT_FALSE(zip.Add(nullptr, "x", 1));
}

// --- Hostile archives ---------------------------------------------------------

constexpr std::size_t kZeros = 1 << 16;

// An archive of two stored entries of equal length and one deflated entry.
std::string SampleArchive() {
  CMemZip zip;
  Add(zip, "a", Pattern(300, 3));
  Add(zip, "b", Pattern(300, 4));
  Add(zip, "zeros", std::string(kZeros, '\0'));
  return Flushed(zip);
}

// Offsets of the central directory records, in archive order.
std::vector<std::size_t> CentralRecords(std::string const& archive) {
  std::vector<std::size_t> offsets;
  for (std::size_t at = archive.find("PK\x01\x02"); at != std::string::npos;
       at = archive.find("PK\x01\x02", at + 4))
    offsets.push_back(at);
  return offsets;
}

void Patch32(std::string& archive, std::size_t at, std::uint32_t value) {
  for (int i = 0; i < 4; ++i)
    archive[at + i] = static_cast<char>(value >> (8 * i));
}

std::uint32_t Read32(std::string const& archive, std::size_t at) {
  std::uint32_t value = 0;
  std::memcpy(&value, archive.data() + at, 4);
  return value;
}

constexpr std::size_t kCompressedSize = 20, kSize = 24, kLocalOffset = 42;

TEST(CMemZipHostileTest, WrongSizesInTheCentralDirectoryAreRefused) {
  const std::string sample = SampleArchive();
  ASSERT_EQ(CentralRecords(sample).size(), 3u);
  struct Case {
    std::size_t entry, field;
    std::uint32_t value;
  };
  const std::uint32_t zerosPacked = Read32(sample, CentralRecords(sample)[2] + kCompressedSize);
  for (Case c : {Case{0, kSize, 301}, Case{0, kSize, 299}, Case{0, kSize, 0x7FFFFFF0},
                 Case{0, kCompressedSize, 0x7FFFFFF0}, Case{2, kSize, kZeros + 1},
                 Case{2, kSize, kZeros - 1}, Case{2, kCompressedSize, zerosPacked - 1},
                 // a zip bomb: a small deflated entry claiming 2 GiB - 1 bytes
                 Case{2, kSize, 0x7FFFFFFF}}) {
    std::string archive = sample;
    Patch32(archive, CentralRecords(archive)[c.entry] + c.field, c.value);
    CMemZip zip(archive.data(), archive.size());
    const char* name = c.entry == 0 ? "a" : "zeros";
    EXPECT_EQ(ExtractText(zip, name), "<null>") << name << " field " << c.field << " " << c.value;
    EXPECT_EQ(ExtractText(zip, "b"), Pattern(300, 4));
  }
}

TEST(CMemZipHostileTest, OverlappingEntriesFailTheirChecksum) {
  std::string archive = SampleArchive();
  const std::vector<std::size_t> records = CentralRecords(archive);
  Patch32(archive, records[1] + kLocalOffset, Read32(archive, records[0] + kLocalOffset));
  CMemZip zip(archive.data(), archive.size());
  EXPECT_EQ(ExtractText(zip, "b"), "<null>"); // reads a's bytes, which are not b's
  EXPECT_EQ(ExtractText(zip, "a"), Pattern(300, 3));
}

// Either the archive is refused, or each entry comes out whole or not at all.
void ExpectExactOrNothing(std::string const& archive, std::string const& what) {
  CMemZip zip(archive.data(), archive.size());
  if (!zip)
    return;
  for (auto const& [name, content] :
       {std::pair{"a", Pattern(300, 3)}, std::pair{"zeros", std::string(kZeros, '\0')}}) {
    const std::string got = ExtractText(zip, name);
    EXPECT_TRUE(got == "<null>" || got == content) << what << ", entry " << name;
  }
}

TEST(CMemZipHostileTest, TruncatedOrDamagedArchivesGiveInvalidOrExactEntries) {
  const std::string sample = SampleArchive();
  for (std::size_t length = 0; length < sample.size(); ++length)
    ExpectExactOrNothing(sample.substr(0, length), "cut to " + std::to_string(length));
  for (std::size_t at = 0; at < sample.size(); ++at) {
    std::string damaged = sample;
    damaged[at] = static_cast<char>(damaged[at] ^ (0x5A + at));
    ExpectExactOrNothing(damaged, "byte " + std::to_string(at) + " changed");
  }
}

} // namespace
} // namespace zrn

// The mapped heap when its file cannot be created or cannot grow: a file-size
// limit stands in for a full disk, a removed folder for an unwritable one.
#include <zrn/System/MappedMalloc.h>

#include "Support/TempFolder.h"

#include <boost/interprocess/exceptions.hpp>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/resource.h>
#include <vector>

namespace zrn {
namespace {

namespace bip = boost::interprocess;
namespace fs = std::filesystem;

constexpr uint64 kInitialFileSize = 1024 + 16777232; // for a first request below 1024
constexpr std::size_t kBlock = 1 << 20;

class MappedHeapFault : public ::testing::Test {
protected:
  test::TempFolder m_folder{test::TempFolder::EnterIt};
};

struct sBlock {
  unsigned char* bytes;
  std::size_t size;
};

void Fill(sBlock const& block, unsigned char seed) {
  for (std::size_t i = 0; i < block.size; ++i)
    block.bytes[i] = static_cast<unsigned char>(seed + i * 31);
}

bool Holds(sBlock const& block, unsigned char seed) {
  for (std::size_t i = 0; i < block.size; ++i)
    if (block.bytes[i] != static_cast<unsigned char>(seed + i * 31))
      return false;
  return true;
}

// Each block of `blocks` must hold its pattern and be freeable; its space is
// then handed out again without growth.
bool IntactAndReusable(std::vector<sBlock> const& blocks) {
  for (std::size_t i = 0; i < blocks.size(); ++i)
    if (!Holds(blocks[i], static_cast<unsigned char>(i)))
      return false;
  for (sBlock const& block : blocks)
    mapped_free(block.bytes);
  std::vector<void*> again;
  for (sBlock const& block : blocks)
    again.push_back(mapped_malloc(block.size));
  for (void* p : again)
    mapped_free(p);
  return true;
}

// The scenarios below change process-wide limits and signal handling, so they
// run in a child process that reports what it saw by its exit code (0: as
// expected) and a line on its standard error.
int Failed(int code, char const* what) {
  std::fprintf(stderr, "%s\n", what);
  return code;
}

#define EXPECT_IN_CHILD(scenario)                                                                  \
  EXPECT_EXIT(std::exit(scenario()), ::testing::ExitedWithCode(0), "")

volatile std::sig_atomic_t g_bFileSizeSignal = 0;

extern "C" void NoteFileSizeSignal(int) { g_bFileSizeSignal = 1; }

bool LimitFileSize(rlim_t bytes) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) != 0)
    return false;
  limit.rlim_cur = bytes;
  return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

// Allocates blocks of kBlock bytes, each filled with its own pattern, until
// mapped_malloc throws or `most` blocks are live; the result tells which
// exception, if any, ended the run.
enum class eThrown { Nothing, BadAlloc, Other };
eThrown AllocateUntilThrown(std::vector<sBlock>& blocks, std::size_t most) {
  try {
    while (blocks.size() < most) {
      blocks.push_back({static_cast<unsigned char*>(mapped_malloc(kBlock)), kBlock});
      Fill(blocks.back(), static_cast<unsigned char>(blocks.size() - 1));
    }
  } catch (bip::bad_alloc const&) {
    return eThrown::BadAlloc;
  } catch (...) {
    return eThrown::Other;
  }
  return eThrown::Nothing;
}

int GrowthPastTheFileSizeLimit() {
  std::signal(SIGXFSZ, &NoteFileSizeSignal);
  std::vector<sBlock> blocks{{static_cast<unsigned char*>(mapped_malloc(1000)), 1000}};
  Fill(blocks[0], 0);
  // A little above the heap's size: room for a page, not for any growth.
  if (!LimitFileSize(kInitialFileSize + kBlock))
    return Failed(10, "cannot lower the file-size limit");
  const eThrown thrown = AllocateUntilThrown(blocks, 64);
  if (thrown != eThrown::BadAlloc)
    return Failed(11, thrown == eThrown::Nothing ? "growth past the limit succeeded"
                                                 : "growth failed with another exception");
  if (blocks.size() < 8)
    return Failed(12, "the initial heap ran out early");
  if (fs::file_size("zrn_mapped_file") != kInitialFileSize)
    return Failed(13, "the failed growth changed the file");
  if (!IntactAndReusable(blocks))
    return Failed(14, "earlier blocks changed");
  if (g_bFileSizeSignal != 0)
    return Failed(15, "the heap ran into the limit instead of checking it");
  // With the limit lifted the same heap grows, and nothing moved meanwhile.
  blocks.clear();
  if (!LimitFileSize(RLIM_INFINITY) || AllocateUntilThrown(blocks, 40) != eThrown::Nothing)
    return Failed(16, "no growth after the limit was lifted");
  if (!IntactAndReusable(blocks))
    return Failed(17, "blocks changed across growth");
  return 0;
}

int CreationPastTheFileSizeLimit() {
  std::signal(SIGXFSZ, &NoteFileSizeSignal);
  if (!LimitFileSize(kInitialFileSize / 2))
    return Failed(10, "cannot lower the file-size limit");
  try {
    mapped_malloc(1);
    return Failed(11, "the heap was created past the limit");
  } catch (bip::bad_alloc const&) {
    return Failed(12, "bad_alloc instead of a creation failure");
  } catch (bip::interprocess_exception const&) {
  }
  if (fs::exists("zrn_mapped_file"))
    return Failed(13, "a failed creation left its file");
  if (g_bFileSizeSignal != 0)
    return Failed(14, "the heap ran into the limit instead of checking it");
  // Nothing was stored: the next call tries again.
  if (!LimitFileSize(RLIM_INFINITY))
    return Failed(15, "cannot lift the file-size limit");
  std::vector<sBlock> blocks{{static_cast<unsigned char*>(mapped_malloc(1)), 1}};
  Fill(blocks[0], 0);
  if (fs::file_size("zrn_mapped_file") != kInitialFileSize || !IntactAndReusable(blocks))
    return Failed(16, "no heap after the limit was lifted");
  return 0;
}

TEST_F(MappedHeapFault, GrowthPastTheFileSizeLimitThrowsBadAllocAndKeepsBlocks) {
  EXPECT_IN_CHILD(GrowthPastTheFileSizeLimit);
}

TEST_F(MappedHeapFault, CreationPastTheFileSizeLimitThrowsAndIsRetried) {
  EXPECT_IN_CHILD(CreationPastTheFileSizeLimit);
}

TEST_F(MappedHeapFault, CreationInAnUnusableFolderThrowsAndIsRetried) {
  // A current folder that was removed after entering it.
  fs::create_directory("gone");
  fs::current_path("gone");
  fs::remove(m_folder.Path() / "gone");
  EXPECT_THROW(mapped_malloc(1), bip::interprocess_exception);
  fs::current_path(m_folder.Path());

  // A folder in the way of the file.
  fs::create_directories("zrn_mapped_file/content");
  EXPECT_THROW(mapped_malloc(1), bip::interprocess_exception);
  EXPECT_TRUE(fs::exists("zrn_mapped_file/content"));
  fs::remove_all("zrn_mapped_file");

  // No mapping was stored: the next call creates the heap here.
  std::vector<sBlock> blocks{{static_cast<unsigned char*>(mapped_malloc(1)), 1}};
  EXPECT_EQ(fs::file_size("zrn_mapped_file"), kInitialFileSize);
  Fill(blocks[0], 0);
  EXPECT_TRUE(IntactAndReusable(blocks));
}

TEST_F(MappedHeapFault, GrowthAfterItsFolderWasRemovedThrowsBadAllocAndKeepsBlocks) {
  fs::create_directory("heap");
  fs::current_path("heap");
  std::vector<sBlock> blocks;
  ASSERT_EQ(AllocateUntilThrown(blocks, 4), eThrown::Nothing);
  fs::current_path(m_folder.Path());
  fs::remove_all("heap");

  EXPECT_EQ(AllocateUntilThrown(blocks, 64), eThrown::BadAlloc);
  EXPECT_GE(blocks.size(), 8u); // the mapped space is still usable
  EXPECT_TRUE(IntactAndReusable(blocks));
  EXPECT_FALSE(fs::exists("heap")); // growth does not bring the file back
}

} // namespace
} // namespace zrn

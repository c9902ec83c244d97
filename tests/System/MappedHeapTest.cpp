#include <zrn/System/MappedMalloc.h>

#include "Support/TempFolder.h"

#include <boost/interprocess/exceptions.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

namespace zrn {
namespace {

namespace fs = std::filesystem;

// Every test runs in its own process, so each creates its heap afresh; the
// backing file lives in a temporary current folder.
class MappedHeap : public ::testing::Test {
protected:
  test::TempFolder m_folder{test::TempFolder::EnterIt};
};

void Fill(void* block, std::size_t size, unsigned char seed) { std::memset(block, seed, size); }

bool Holds(void const* block, std::size_t size, unsigned char seed) {
  auto const* bytes = static_cast<unsigned char const*>(block);
  for (std::size_t i = 0; i < size; ++i)
    if (bytes[i] != seed)
      return false;
  return true;
}

TEST_F(MappedHeap, FirstAllocationReplacesTheFileWithItsInitialSize) {
  std::ofstream("zrn_mapped_file") << "an older heap";
  mapped_free(nullptr);
  mapped_free(&m_folder); // before any allocation: ignored
  void* block = mapped_malloc(1);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(fs::file_size("zrn_mapped_file"), 1024u + 16777232u);
  mapped_free(block);
  mapped_free(nullptr);
}

TEST_F(MappedHeap, BlocksAreWritableOverTheirSizeAndReusedAfterFree) {
  std::vector<void*> blocks;
  for (unsigned char i = 0; i < 64; ++i) {
    const std::size_t size = 1 + i * 97;
    blocks.push_back(mapped_malloc(size));
    Fill(blocks.back(), size, i);
  }
  for (unsigned char i = 0; i < 64; ++i)
    EXPECT_TRUE(Holds(blocks[i], 1 + i * 97, i));
  void* freed = blocks[10];
  mapped_free(freed);
  EXPECT_EQ(mapped_malloc(1 + 10 * 97), freed);
}

TEST_F(MappedHeap, EveryBlockStaysAddressableAcrossGrowth) {
  // 1 GiB of live blocks grows the file many times over its initial 16 MiB.
  constexpr std::size_t kBlock = 4 << 20;
  std::vector<unsigned char*> blocks;
  for (std::size_t total = 0; total < (std::size_t{1} << 30); total += kBlock) {
    auto* block = static_cast<unsigned char*>(mapped_malloc(kBlock));
    block[0] = static_cast<unsigned char>(blocks.size());
    block[kBlock - 1] = static_cast<unsigned char>(blocks.size() + 1);
    blocks.push_back(block);
  }
  EXPECT_GT(fs::file_size("zrn_mapped_file"), std::uintmax_t{1} << 30);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    ASSERT_EQ(blocks[i][0], static_cast<unsigned char>(i));
    ASSERT_EQ(blocks[i][kBlock - 1], static_cast<unsigned char>(i + 1));
  }
  for (unsigned char* block : blocks)
    mapped_free(block);
}

TEST_F(MappedHeap, RequestsBeyondTheLimitThrowBadAlloc) {
  void* block = mapped_malloc(100);
  EXPECT_THROW(mapped_malloc(kMappedHeapLimit + 1), boost::interprocess::bad_alloc);
  EXPECT_THROW(mapped_malloc(~uint64{0}), boost::interprocess::bad_alloc);
  Fill(block, 100, 7); // earlier blocks are untouched
  EXPECT_TRUE(Holds(block, 100, 7));
}

TEST_F(MappedHeap, ThreadsAllocateAndFreeAtOnce) {
  mapped_free(mapped_malloc(1)); // the first call creates the heap
  std::vector<std::thread> threads;
  for (unsigned char t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      std::vector<void*> live;
      for (int i = 0; i < 4000; ++i) {
        const std::size_t size = 64 + (i * 37) % 4096;
        void* block = mapped_malloc(size);
        Fill(block, size, t);
        live.push_back(block);
        if (live.size() > 64) {
          ASSERT_TRUE(Holds(live.front(), 64, t));
          mapped_free(live.front());
          live.erase(live.begin());
        }
      }
      for (void* block : live)
        mapped_free(block);
    });
  // Enough live data among the threads to force growth while they run.
  std::vector<void*> big;
  for (int i = 0; i < 12; ++i)
    big.push_back(mapped_malloc(4 << 20));
  for (std::thread& thread : threads)
    thread.join();
  for (void* block : big)
    mapped_free(block);
}

} // namespace
} // namespace zrn

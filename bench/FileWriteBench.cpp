// File write throughput, in bytes per second of wall-clock time: 256 MiB
// written through a storing GFileIOStream (64 KiB Write calls, then close,
// which writes the gathered output to the file) next to the same 256 MiB
// written with write(2) in 1 MiB chunks to a file opened with O_TRUNC. Both
// time the whole of open, write and close, and neither syncs: the figures are
// for writing into the page cache. Every pass constructs a new stream, as a
// host saving one file after another does. The peer runs first. The files
// live in /tmp and are removed after each run.
#include <zrn/IO/FileIOStream.h>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

constexpr std::size_t kTotalBytes = std::size_t{256} << 20;
constexpr unsigned int kZrnChunk = 64u << 10;
constexpr std::size_t kPosixChunk = std::size_t{1} << 20;
constexpr double kWarmUpSeconds = 0.5;
constexpr double kMinSeconds = 2.0;

constexpr char kZrnPath[] = "/tmp/zrn_bench_file.bin";
constexpr wchar_t kZrnPathW[] = L"/tmp/zrn_bench_file.bin";
constexpr char kPosixPath[] = "/tmp/zrn_bench_file_posix.bin";

// A buffer of `size` bytes holding a pattern rather than zeros.
std::vector<char> Filled(std::size_t size) {
  std::vector<char> bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<char>((i * 131 + 7) & 0xFF);
  return bytes;
}

void RemoveFiles(benchmark::State const&) {
  std::remove(kZrnPath);
  std::remove(kPosixPath);
}

void BM_ZrnFileWrite(benchmark::State& state) {
  std::vector<char> chunk = Filled(kZrnChunk);
  for (auto _ : state) {
    zrn::GFileIOStream file(true, kZrnPathW, false);
    for (std::size_t done = 0; done < kTotalBytes; done += kZrnChunk) {
      if (!file.Write(chunk.data(), kZrnChunk)) {
        state.SkipWithError("GFileIOStream::Write failed");
        break;
      }
    }
    file.close();
    if (!file.IsGood()) {
      state.SkipWithError("cannot write /tmp/zrn_bench_file.bin");
      break;
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kTotalBytes));
}

void BM_PosixFileWrite(benchmark::State& state) {
  std::vector<char> chunk = Filled(kPosixChunk);
  for (auto _ : state) {
    const int fd = ::open(kPosixPath, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) {
      state.SkipWithError("cannot open /tmp/zrn_bench_file_posix.bin");
      break;
    }
    bool ok = true;
    for (std::size_t done = 0; done < kTotalBytes && ok; done += kPosixChunk) {
      char const* p = chunk.data();
      std::size_t left = kPosixChunk;
      while (left > 0) {
        const ssize_t n = ::write(fd, p, left);
        if (n <= 0) {
          ok = false;
          break;
        }
        p += n;
        left -= static_cast<std::size_t>(n);
      }
    }
    if (::close(fd) != 0)
      ok = false;
    if (!ok) {
      state.SkipWithError("cannot write /tmp/zrn_bench_file_posix.bin");
      break;
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kTotalBytes));
}

void Configure(benchmark::internal::Benchmark* b) {
  b->Setup(RemoveFiles)
      ->Teardown(RemoveFiles)
      ->Unit(benchmark::kMillisecond)
      ->MinWarmUpTime(kWarmUpSeconds)
      ->MinTime(kMinSeconds)
      ->UseRealTime();
}

BENCHMARK(BM_PosixFileWrite)->Apply(Configure);
BENCHMARK(BM_ZrnFileWrite)->Apply(Configure);

} // namespace

BENCHMARK_MAIN();

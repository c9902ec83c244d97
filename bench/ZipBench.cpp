// Zip archives in memory: 1,000 entries of 4 KiB of text added and the
// archive finished into one block, then every entry of that archive read back
// by name; CMemZip next to bare libzip doing the same (libzip's entries read
// the caller's text in place, CMemZip copies it first, as it must).
#include <zrn/IO/MemZip.h>

#include <benchmark/benchmark.h>

#include <zip.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kEntries = 1000;
constexpr std::size_t kEntrySize = 4096;
constexpr double kWarmUpSeconds = 0.5;

struct Sample {
  std::vector<std::string> names, texts;
  std::string archive;
};

// Words drawn at random from a small vocabulary, so that each text deflates
// like prose rather than like a repeated pattern.
std::string Text(std::uint32_t& state) {
  static char const* const kWords[] = {"model", "part",  "edge",    "face",  "sketch",
                                       "the",   "of",    "length",  "angle", "rebuild",
                                       "a",     "plane", "feature", "and",   "offset"};
  std::string text;
  while (text.size() < kEntrySize) {
    state = state * 1664525u + 1013904223u;
    text += kWords[(state >> 16) % std::size(kWords)];
    text += (state >> 8) % 11 == 0 ? '\n' : ' ';
  }
  text.resize(kEntrySize);
  return text;
}

Sample const& GetSample() {
  static const Sample sample = [] {
    Sample s;
    std::uint32_t state = 1;
    for (int i = 0; i < kEntries; ++i) {
      s.names.push_back("folder" + std::to_string(i % 10) + "/entry" + std::to_string(i) + ".txt");
      s.texts.push_back(Text(state));
    }
    zrn::CMemZip zip;
    for (int i = 0; i < kEntries; ++i)
      zip.Add(s.names[i].c_str(), s.texts[i].data(), kEntrySize);
    unsigned long long size = 0;
    char* block = zip.FlushToBytes(size);
    s.archive.assign(block, size);
    std::free(block);
    return s;
  }();
  return sample;
}

void BM_MemZipBuild(benchmark::State& state) {
  Sample const& sample = GetSample();
  for (auto _ : state) {
    zrn::CMemZip zip;
    for (int i = 0; i < kEntries; ++i)
      zip.Add(sample.names[i].c_str(), sample.texts[i].data(), kEntrySize);
    unsigned long long size = 0;
    char* block = zip.FlushToBytes(size);
    if (!block) {
      state.SkipWithError("FlushToBytes failed");
      break;
    }
    std::free(block);
  }
}

// Reads the whole content of a finished buffer source into a malloc'ed block.
char* ReadSource(zip_source_t* source, zip_uint64_t& size) {
  zip_stat_t stat;
  zip_stat_init(&stat);
  if (zip_source_stat(source, &stat) < 0 || zip_source_open(source) < 0)
    return nullptr;
  size = stat.size;
  char* block = static_cast<char*>(std::malloc(size));
  if (block && zip_source_read(source, block, size) < static_cast<zip_int64_t>(size)) {
    std::free(block);
    block = nullptr;
  }
  zip_source_close(source);
  return block;
}

void BM_LibzipBuild(benchmark::State& state) {
  Sample const& sample = GetSample();
  for (auto _ : state) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = zip_source_buffer_create(nullptr, 0, 0, &error);
    zip_t* archive = zip_open_from_source(source, 0, &error);
    zip_source_keep(source);
    for (int i = 0; i < kEntries; ++i) {
      zip_source_t* entry = zip_source_buffer(archive, sample.texts[i].data(), kEntrySize, 0);
      if (zip_file_add(archive, sample.names[i].c_str(), entry, ZIP_FL_OVERWRITE) < 0)
        zip_source_free(entry);
    }
    zip_close(archive);
    zip_uint64_t size = 0;
    char* block = ReadSource(source, size);
    zip_source_free(source);
    zip_error_fini(&error);
    if (!block) {
      state.SkipWithError("reading the finished archive failed");
      break;
    }
    std::free(block);
  }
}

void BM_MemZipRead(benchmark::State& state) {
  Sample const& sample = GetSample();
  for (auto _ : state) {
    zrn::CMemZip zip(sample.archive.data(), sample.archive.size());
    for (int i = 0; i < kEntries; ++i) {
      unsigned long long size = 0;
      std::unique_ptr<char[]> bytes(zip.Extract(sample.names[i].c_str(), size));
      if (size != kEntrySize)
        state.SkipWithError("Extract failed");
    }
  }
}

void BM_LibzipRead(benchmark::State& state) {
  Sample const& sample = GetSample();
  for (auto _ : state) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source =
        zip_source_buffer_create(sample.archive.data(), sample.archive.size(), 0, &error);
    zip_t* archive = zip_open_from_source(source, 0, &error);
    for (int i = 0; i < kEntries; ++i) {
      zip_stat_t stat;
      zip_stat_init(&stat);
      zip_stat(archive, sample.names[i].c_str(), 0, &stat);
      zip_file_t* file = zip_fopen_index(archive, stat.index, 0);
      std::unique_ptr<char[]> bytes(new char[stat.size]);
      if (!file || zip_fread(file, bytes.get(), stat.size) != static_cast<zip_int64_t>(kEntrySize))
        state.SkipWithError("reading an entry failed");
      if (file)
        zip_fclose(file);
    }
    zip_discard(archive);
    zip_error_fini(&error);
  }
}

void Configure(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMillisecond)->MinWarmUpTime(kWarmUpSeconds);
}

BENCHMARK(BM_MemZipBuild)->Apply(Configure);
BENCHMARK(BM_LibzipBuild)->Apply(Configure);
BENCHMARK(BM_MemZipRead)->Apply(Configure);
BENCHMARK(BM_LibzipRead)->Apply(Configure);

} // namespace

BENCHMARK_MAIN();

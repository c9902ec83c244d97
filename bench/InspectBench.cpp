// The archive structure reader on a 100 MiB stream of one million small
// objects, beside the archive's own SkipObject walk over the same stream
// (which reads the same headers but reports nothing).
//
// `zrn_bench_inspect --write-stream FILE` writes the stream to FILE instead,
// for timing the zrn-inspect tool on it:
//   /usr/bin/time -v zrn-inspect FILE > /dev/null
#include <zrn/IO/ArchiveReader.h>
#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

using namespace zrn;

constexpr int kObjects = 1000000;

// Each object: version 1, a block with its number (8 bytes), a block with an
// 82-byte text: 3 + 13 + 5 + 86 = 107 bytes.
GMemStream& Stream() {
  static GMemStream* stream = [] {
    auto* s = new GMemStream(true, nullptr, 0);
    GDbArchiveImpl ar(s);
    const std::string text(82, 't');
    for (long long i = 0; i < kObjects; ++i) {
      const auto key = reinterpret_cast<void const*>(ar.CreateNewObjectID());
      ar.BeginWriteObject(key, 1);
      ar.BeginWriteBlock(1, key);
      ar << i;
      ar.EndWriteBlock(1, key);
      ar.BeginWriteBlock(2, key);
      ar << text;
      ar.EndWriteBlock(2, key);
      ar.EndWriteObject(key);
    }
    s->SetOpenMode(false);
    return s;
  }();
  return *stream;
}

class CCounter : public IArchiveVisitor {
public:
  long long objects = 0;
  unsigned long long leafBytes = 0;
  void BeginObject(sArchiveObject const&) override { ++objects; }
  void Leaf(sArchiveLeaf const& leaf) override { leafBytes += leaf.bytes.size(); }
};

// From the memory range (argument 0) or through the stream as a device (1).
void BM_ReaderWalk(benchmark::State& state) {
  GMemStream& stream = Stream();
  CArchiveReader reader;
  reader.SetLeafLimit(16);
  for (auto _ : state) {
    CCounter counter;
    const bool whole = state.range(0) == 0
                           ? reader.Read(stream.GetData(), stream.GetDataSize(), counter)
                           : reader.Read(stream, counter);
    if (!whole || counter.objects != kObjects)
      state.SkipWithError("the walk did not read every object");
    benchmark::DoNotOptimize(counter.leafBytes);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(stream.GetDataSize()));
}

// The peer: the archive skipping every object by its sizes.
void BM_ArchiveSkipObject(benchmark::State& state) {
  GMemStream& stream = Stream();
  for (auto _ : state) {
    GDbArchiveImpl ar(&stream);
    const long long size = stream.GetDataSize();
    long long objects = 0;
    while (ar.DevicePos() < size) {
      ar.SkipObject();
      ++objects;
    }
    benchmark::DoNotOptimize(objects);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(stream.GetDataSize()));
}

BENCHMARK(BM_ArchiveSkipObject)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReaderWalk)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--write-stream") == 0) {
    GMemStream& stream = Stream();
    std::FILE* file = std::fopen(argv[2], "wb");
    const bool written = file && std::fwrite(stream.GetData(), 1, stream.GetDataSize(), file) ==
                                     stream.GetDataSize();
    if (file)
      std::fclose(file);
    return written ? 0 : 1;
  }
  Stream(); // built once, before and outside every timing
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

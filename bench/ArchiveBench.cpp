// Archive throughput in memory, in records per second and bytes per second:
// one million records of { long long, double, 8-16 character string, 8
// character wide string } written out and read back again.
//
//   ZrnFramed    GDbArchiveImpl over a GMemStream, reached through GDbArchive&
//                as a host class's Serialize reaches it: each record an object
//                of two tagged blocks (the numbers, then the texts), fields by
//                << / >>
//   ZrnPlain     the same archive and stream, the four fields with no framing
//   Cereal       cereal's binary archive, a serialize() member on the record
//   Boost        Boost.Serialization's binary archive without header, the
//                record marked object_serializable and never tracked (its
//                lightest setting for plain values)
//   Raw          memcpy of the fields into a byte vector, strings prefixed by
//                a 32-bit length, wide strings copied as they lie in memory:
//                a bound rather than a format
//
// The peers run first. The records are generated once, on first use, before
// any timed loop starts (as are the encoded bytes that the read benchmarks
// decode). Each write benchmark reuses one output buffer sized for its format
// beforehand, so no run measures the buffer growing from nothing; cereal and
// Boost write to and read from std::streams whose buffer is such a plain
// byte vector too. Each read benchmark decodes bytes that the same format
// wrote before timing, into one scratch record, and sums a checksum of what
// it read so that every field is really decoded; a wrong sum is reported as
// an error.
#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>

#include <benchmark/benchmark.h>
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/level.hpp>
#include <boost/serialization/string.hpp>
#include <boost/serialization/tracking.hpp>
#include <cereal/archives/binary.hpp>
#include <cereal/types/string.hpp>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <istream>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kRecords = 1'000'000;
constexpr double kWarmUpSeconds = 0.5;

struct Record {
  long long id = 0;
  double value = 0.0;
  std::string name;
  std::wstring tag;

  // For cereal.
  template <class Archive> void serialize(Archive& ar) { ar(id, value, name, tag); }
};

} // namespace

// For Boost.Serialization: a plain value, written with no class information
// and never tracked.
namespace boost::serialization {
template <class Archive> void serialize(Archive& ar, Record& record, unsigned int /*version*/) {
  ar& record.id& record.value& record.name& record.tag;
}
} // namespace boost::serialization
BOOST_CLASS_IMPLEMENTATION(Record, boost::serialization::object_serializable)
BOOST_CLASS_TRACKING(Record, boost::serialization::track_never)

namespace {

// --- Records ---------------------------------------------------------------

std::vector<Record> MakeRecords() {
  std::vector<Record> records(kRecords);
  for (std::size_t i = 0; i < kRecords; ++i) {
    Record& r = records[i];
    r.id = static_cast<long long>(i) * 7919 + 17;
    r.value = static_cast<double>(i) * 0.125 - 1000.0;
    r.name.resize(8 + i % 9); // 8 to 16 characters
    for (std::size_t k = 0; k < r.name.size(); ++k)
      r.name[k] = static_cast<char>('a' + (i + 7 * k) % 26);
    r.tag.resize(8);
    for (std::size_t k = 0; k < r.tag.size(); ++k)
      r.tag[k] = static_cast<wchar_t>(L'A' + (i / (k + 1)) % 26);
  }
  return records;
}

std::vector<Record> const& Records() {
  static const std::vector<Record> records = MakeRecords();
  return records;
}

// What a read pass adds up: it touches every field that was decoded.
long long Checksum(Record const& r) {
  return r.id + static_cast<long long>(r.value) + static_cast<long long>(r.name.size()) +
         static_cast<long long>(r.tag.size()) + r.name.back() +
         static_cast<long long>(r.tag.back());
}

long long ExpectedChecksum() {
  static const long long sum = [] {
    long long total = 0;
    for (Record const& r : Records())
      total += Checksum(r);
    return total;
  }();
  return sum;
}

void Report(benchmark::State& state, std::size_t bytes) {
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kRecords));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
  state.counters["B/record"] = static_cast<double>(bytes) / static_cast<double>(kRecords);
}

void CheckRead(benchmark::State& state, long long sum) {
  if (sum != ExpectedChecksum())
    state.SkipWithError("the records read back differ from those written");
}

// --- Stream buffers for the std::stream based archives ------------------------

// An output buffer over a byte vector that is kept from run to run.
class ByteSink : public std::streambuf {
public:
  explicit ByteSink(std::size_t capacity) : m_bytes(std::max<std::size_t>(capacity, 64)) {
    Rewind();
  }

  void Rewind() { setp(m_bytes.data(), m_bytes.data() + m_bytes.size()); }
  char const* Data() const { return pbase(); }
  std::size_t Size() const { return static_cast<std::size_t>(pptr() - pbase()); }
  std::vector<char> Bytes() const { return std::vector<char>(pbase(), pptr()); }

protected:
  std::streamsize xsputn(char const* s, std::streamsize n) override {
    if (epptr() - pptr() < n)
      Grow(static_cast<std::size_t>(n));
    std::memcpy(pptr(), s, static_cast<std::size_t>(n));
    Advance(static_cast<std::size_t>(n));
    return n;
  }

  int_type overflow(int_type ch) override {
    if (traits_type::eq_int_type(ch, traits_type::eof()))
      return traits_type::not_eof(ch);
    if (pptr() == epptr())
      Grow(1);
    *pptr() = traits_type::to_char_type(ch);
    Advance(1);
    return ch;
  }

private:
  void Grow(std::size_t more) {
    const std::size_t used = Size();
    m_bytes.resize(std::max(2 * m_bytes.size(), used + more));
    setp(m_bytes.data(), m_bytes.data() + m_bytes.size());
    Advance(used);
  }

  // pbump takes an int: move in steps that fit.
  void Advance(std::size_t n) {
    while (n > 0) {
      const int step = static_cast<int>(std::min<std::size_t>(n, 1u << 30));
      pbump(step);
      n -= static_cast<std::size_t>(step);
    }
  }

  std::vector<char> m_bytes;
};

// An input buffer over bytes it does not own.
class ByteSource : public std::streambuf {
public:
  explicit ByteSource(std::vector<char> const& bytes) {
    char* begin = const_cast<char*>(bytes.data());
    setg(begin, begin, begin + bytes.size());
  }

protected:
  std::streamsize xsgetn(char* s, std::streamsize n) override {
    n = std::min<std::streamsize>(n, egptr() - gptr());
    std::memcpy(s, gptr(), static_cast<std::size_t>(n));
    gbump(static_cast<int>(n));
    return n;
  }
};

// --- zrn, framed ---------------------------------------------------------------

// A host class's Serialize: it sees only the interface, so every call is a
// virtual one, as in a host program.
void SerializeFramed(zrn::GDbArchive& ar, Record const& r) {
  void const* const key = reinterpret_cast<void const*>(ar.CreateNewObjectID());
  ar.BeginWriteObject(key, 1);
  ar.BeginWriteBlock(1, key);
  ar << r.id << r.value;
  ar.EndWriteBlock(1, key);
  ar.BeginWriteBlock(2, key);
  ar << r.name << r.tag;
  ar.EndWriteBlock(2, key);
  ar.EndWriteObject(key);
}

void DeserializeFramed(zrn::GDbArchive& ar, Record& r) {
  unsigned char blockCount = 0;
  unsigned short version = 0;
  ar.ReadObject(blockCount, version);
  for (unsigned i = 0; i < blockCount; ++i) {
    unsigned char tag = 0;
    unsigned int size = 0;
    ar.ReadBlock(tag, size);
    if (tag == 1)
      ar >> r.id >> r.value;
    else if (tag == 2)
      ar >> r.name >> r.tag;
    else
      ar.SeekPos(static_cast<int>(size), zrn::GDbArchive::SEEKFROM_CURRENT);
  }
  ar.EndReadObject();
}

void WriteZrnFramed(zrn::GDbArchiveImpl& ar, std::vector<Record> const& records) {
  for (Record const& r : records)
    SerializeFramed(ar, r);
}

long long ReadZrnFramed(zrn::GDbArchiveImpl& ar, Record& r) {
  long long sum = 0;
  for (std::size_t i = 0; i < kRecords; ++i) {
    DeserializeFramed(ar, r);
    sum += Checksum(r);
  }
  return sum;
}

// --- zrn, plain ----------------------------------------------------------------

void WriteZrnPlain(zrn::GDbArchiveImpl& ar, std::vector<Record> const& records) {
  for (Record const& r : records)
    ar << r.id << r.value << r.name << r.tag;
}

long long ReadZrnPlain(zrn::GDbArchiveImpl& ar, Record& r) {
  long long sum = 0;
  for (std::size_t i = 0; i < kRecords; ++i) {
    ar >> r.id >> r.value >> r.name >> r.tag;
    sum += Checksum(r);
  }
  return sum;
}

using ZrnWriter = void (*)(zrn::GDbArchiveImpl&, std::vector<Record> const&);
using ZrnReader = long long (*)(zrn::GDbArchiveImpl&, Record&);

std::vector<char> ZrnEncode(ZrnWriter write) {
  zrn::GMemStream stream(true, nullptr, 0);
  zrn::GDbArchiveImpl ar(&stream);
  write(ar, Records());
  return std::vector<char>(stream.GetData(), stream.GetData() + stream.GetDataSize());
}

std::vector<char> const& ZrnFramedBytes() {
  static const std::vector<char> bytes = ZrnEncode(WriteZrnFramed);
  return bytes;
}

std::vector<char> const& ZrnPlainBytes() {
  static const std::vector<char> bytes = ZrnEncode(WriteZrnPlain);
  return bytes;
}

void RunZrnWrite(benchmark::State& state, ZrnWriter write, std::size_t expected) {
  auto const& records = Records();
  zrn::GMemStream stream(true, nullptr, 0);
  stream.EnsureResizeVector(static_cast<long long>(expected));
  for (auto _ : state) {
    zrn::GDbArchiveImpl ar(&stream); // rewinds the stream
    write(ar, records);
    benchmark::DoNotOptimize(stream.GetData());
    benchmark::ClobberMemory();
  }
  if (stream.GetDataSize() != expected)
    state.SkipWithError("unexpected output size");
  Report(state, stream.GetDataSize());
}

void RunZrnRead(benchmark::State& state, ZrnReader read, std::vector<char> const& bytes) {
  ExpectedChecksum();
  zrn::GMemStream stream(bytes.data(), static_cast<unsigned int>(bytes.size()));
  Record scratch;
  long long sum = 0;
  for (auto _ : state) {
    zrn::GDbArchiveImpl ar(&stream); // rewinds the stream
    sum = read(ar, scratch);
    benchmark::DoNotOptimize(sum);
  }
  CheckRead(state, sum);
  Report(state, bytes.size());
}

void BM_ZrnFramedWrite(benchmark::State& state) {
  RunZrnWrite(state, WriteZrnFramed, ZrnFramedBytes().size());
}

void BM_ZrnFramedRead(benchmark::State& state) {
  RunZrnRead(state, ReadZrnFramed, ZrnFramedBytes());
}

void BM_ZrnPlainWrite(benchmark::State& state) {
  RunZrnWrite(state, WriteZrnPlain, ZrnPlainBytes().size());
}

void BM_ZrnPlainRead(benchmark::State& state) { RunZrnRead(state, ReadZrnPlain, ZrnPlainBytes()); }

// --- cereal and Boost.Serialization ------------------------------------------

// How each std::stream based library writes and reads one record.
struct CerealFormat {
  using Writer = cereal::BinaryOutputArchive;
  using Reader = cereal::BinaryInputArchive;
  static Writer MakeWriter(std::ostream& os) { return Writer(os); }
  static Reader MakeReader(std::istream& is) { return Reader(is); }
  static void Write(Writer& ar, Record const& r) { ar(r); }
  static void Read(Reader& ar, Record& r) { ar(r); }
};

struct BoostFormat {
  using Writer = boost::archive::binary_oarchive;
  using Reader = boost::archive::binary_iarchive;
  static Writer MakeWriter(std::ostream& os) { return Writer(os, boost::archive::no_header); }
  static Reader MakeReader(std::istream& is) { return Reader(is, boost::archive::no_header); }
  static void Write(Writer& ar, Record const& r) { ar << r; }
  static void Read(Reader& ar, Record& r) { ar >> r; }
};

template <class Format> void WriteStream(ByteSink& sink, std::vector<Record> const& records) {
  std::ostream os(&sink);
  auto ar = Format::MakeWriter(os);
  for (Record const& r : records)
    Format::Write(ar, r);
}

template <class Format> std::vector<char> const& StreamBytes() {
  static const std::vector<char> bytes = [] {
    ByteSink sink(0);
    WriteStream<Format>(sink, Records());
    return sink.Bytes();
  }();
  return bytes;
}

template <class Format> void BM_StreamWrite(benchmark::State& state) {
  auto const& records = Records();
  ByteSink sink(StreamBytes<Format>().size());
  for (auto _ : state) {
    sink.Rewind();
    WriteStream<Format>(sink, records);
    benchmark::DoNotOptimize(sink.Data());
    benchmark::ClobberMemory();
  }
  Report(state, sink.Size());
}

template <class Format> void BM_StreamRead(benchmark::State& state) {
  auto const& bytes = StreamBytes<Format>();
  ExpectedChecksum();
  Record scratch;
  long long sum = 0;
  for (auto _ : state) {
    ByteSource source(bytes);
    std::istream is(&source);
    auto ar = Format::MakeReader(is);
    sum = 0;
    for (std::size_t i = 0; i < kRecords; ++i) {
      Format::Read(ar, scratch);
      sum += Checksum(scratch);
    }
    benchmark::DoNotOptimize(sum);
  }
  CheckRead(state, sum);
  Report(state, bytes.size());
}

// --- Raw copies ------------------------------------------------------------------

template <class T> void PutValue(char*& p, T const& value) {
  std::memcpy(p, &value, sizeof value);
  p += sizeof value;
}

template <class Char> void PutText(char*& p, std::basic_string<Char> const& text) {
  const auto length = static_cast<std::int32_t>(text.size());
  PutValue(p, length);
  std::memcpy(p, text.data(), text.size() * sizeof(Char));
  p += text.size() * sizeof(Char);
}

template <class T> void GetValue(char const*& p, T& value) {
  std::memcpy(&value, p, sizeof value);
  p += sizeof value;
}

template <class Char> void GetText(char const*& p, std::basic_string<Char>& text) {
  std::int32_t length = 0;
  GetValue(p, length);
  text.resize(static_cast<std::size_t>(length));
  std::memcpy(text.data(), p, text.size() * sizeof(Char));
  p += text.size() * sizeof(Char);
}

std::size_t RawSize(std::vector<Record> const& records) {
  std::size_t size = 0;
  for (Record const& r : records)
    size += sizeof r.id + sizeof r.value + 2 * sizeof(std::int32_t) + r.name.size() +
            r.tag.size() * sizeof(wchar_t);
  return size;
}

std::size_t WriteRaw(std::vector<char>& out, std::vector<Record> const& records) {
  char* p = out.data();
  for (Record const& r : records) {
    PutValue(p, r.id);
    PutValue(p, r.value);
    PutText(p, r.name);
    PutText(p, r.tag);
  }
  return static_cast<std::size_t>(p - out.data());
}

std::vector<char> const& RawBytes() {
  static const std::vector<char> bytes = [] {
    std::vector<char> out(RawSize(Records()));
    out.resize(WriteRaw(out, Records()));
    return out;
  }();
  return bytes;
}

void BM_RawWrite(benchmark::State& state) {
  auto const& records = Records();
  std::vector<char> out(RawBytes().size());
  std::size_t size = 0;
  for (auto _ : state) {
    size = WriteRaw(out, records);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  Report(state, size);
}

void BM_RawRead(benchmark::State& state) {
  auto const& bytes = RawBytes();
  ExpectedChecksum();
  Record scratch;
  long long sum = 0;
  for (auto _ : state) {
    char const* p = bytes.data();
    sum = 0;
    for (std::size_t i = 0; i < kRecords; ++i) {
      GetValue(p, scratch.id);
      GetValue(p, scratch.value);
      GetText(p, scratch.name);
      GetText(p, scratch.tag);
      sum += Checksum(scratch);
    }
    benchmark::DoNotOptimize(sum);
  }
  CheckRead(state, sum);
  Report(state, bytes.size());
}

void Configure(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMillisecond)->MinWarmUpTime(kWarmUpSeconds);
}

BENCHMARK(BM_StreamWrite<CerealFormat>)->Name("BM_CerealWrite")->Apply(Configure);
BENCHMARK(BM_StreamRead<CerealFormat>)->Name("BM_CerealRead")->Apply(Configure);
BENCHMARK(BM_StreamWrite<BoostFormat>)->Name("BM_BoostWrite")->Apply(Configure);
BENCHMARK(BM_StreamRead<BoostFormat>)->Name("BM_BoostRead")->Apply(Configure);
BENCHMARK(BM_RawWrite)->Apply(Configure);
BENCHMARK(BM_RawRead)->Apply(Configure);
BENCHMARK(BM_ZrnFramedWrite)->Apply(Configure);
BENCHMARK(BM_ZrnFramedRead)->Apply(Configure);
BENCHMARK(BM_ZrnPlainWrite)->Apply(Configure);
BENCHMARK(BM_ZrnPlainRead)->Apply(Configure);

} // namespace

BENCHMARK_MAIN();

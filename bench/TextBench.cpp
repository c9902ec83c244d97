// Text conversion and base64 throughput, in input bytes per second, each
// against a point of comparison in the same run:
//
//   Utf8ToWide / WideToUtf8   GStdStringTrans::Utf8ToUnicode / UnicodeToUtf8
//                             on 16 MiB of text: mix:0 is ASCII with 10% CJK
//                             characters at random places (the hardest mix
//                             for block-wise ASCII paths), mix:1 has 1% CJK,
//                             mix:2 is a quarter ASCII, a quarter CJK and half
//                             Cyrillic (two bytes), against iconv
//                             ("UTF-8" <-> "WCHAR_T") with one descriptor
//                             opened before timing. Both sides hand back a
//                             new array.
//   Cp936ToWide / WideToCp936 StringToWString / WstringToString on a batch of
//                             1,000 strings of 16-64 characters (half of them
//                             CJK), and on one string of 2 Mi characters,
//                             against a bare iconv loop ("CP936" <->
//                             "WCHAR_T") with one descriptor opened before
//                             timing. Both sides build a std::string or
//                             std::wstring per string.
//   Base64Encode / Decode     base64_encode / base64_decode on 16 MiB of
//                             random bytes, against OpenSSL's EVP_EncodeBlock
//                             / EVP_DecodeBlock into a std::string of the size
//                             they need.
//
// The UTF-8 paths are chosen once per process; run the program with
// ZRN_SIMD=scalar, avx2 or avx512 to measure each (iconv runs in every run).
//
// All inputs are generated once, before any timed loop; the results of both
// sides are compared once before timing, and a difference is reported as an
// error. The allocator is told to keep freed memory (mallopt): glibc would
// otherwise hand every block above 32 MiB back to the kernel when it is
// freed, and both sides would then pay, on every iteration, for mapping fresh
// pages, which in some environments (about 10 us per 4 KiB page) costs more
// than the conversion itself.
#include <zrn/Text/Base64.h>
#include <zrn/Text/StringTrans.h>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdint>
#include <cstring>
#include <iconv.h>
#include <malloc.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr double kWarmUpSeconds = 0.5;
constexpr std::size_t kLargeBytes = 16u << 20;
constexpr std::size_t kLargeCp936Chars = 2u << 20;
constexpr std::size_t kBatchStrings = 1000;

using zrn::GStdStringTrans;

// --- Inputs ------------------------------------------------------------------

// A character: ASCII letters, digits and punctuation, or, with the given
// share, a CJK ideograph (all of which code page 936 holds).
wchar_t RandomChar(std::mt19937& random, double cjkShare) {
  static constexpr char kAscii[] =
      "abcdefghijklmnopqrstuvwxyz ABCDEFGHIJKLMNOPQRSTUVWXYZ 0123456789 ,.;";
  if (std::uniform_real_distribution<double>(0, 1)(random) < cjkShare)
    return static_cast<wchar_t>(std::uniform_int_distribution<int>(0x4E00, 0x9FA5)(random));
  return static_cast<wchar_t>(kAscii[random() % (sizeof kAscii - 1)]);
}

std::wstring RandomText(std::mt19937& random, std::size_t chars, double cjkShare) {
  std::wstring text(chars, L'\0');
  for (wchar_t& c : text)
    c = RandomChar(random, cjkShare);
  return text;
}

std::string ToUtf8(std::wstring const& text) {
  return std::unique_ptr<char[]>(GStdStringTrans::UnicodeToUtf8(text.c_str())).get();
}

// The UTF-8 texts, by the benchmarks' argument.
enum Utf8Mix : int {
  kCjkTenth,    // 10% CJK at random places in ASCII
  kMostlyAscii, // 1% CJK
  kTwoAndThree, // a quarter ASCII, half two-byte (Cyrillic), a quarter CJK
};

wchar_t MixedChar(std::mt19937& random) {
  switch (random() % 4) {
  case 0:
    return RandomChar(random, 0.0);
  case 1:
    return RandomChar(random, 1.0);
  default:
    return static_cast<wchar_t>(std::uniform_int_distribution<int>(0x0410, 0x044F)(random));
  }
}

std::wstring TextOfMix(std::mt19937& random, std::size_t chars, int mix) {
  if (mix != kTwoAndThree)
    return RandomText(random, chars, mix == kCjkTenth ? 0.1 : 0.01);
  std::wstring text(chars, L'\0');
  for (wchar_t& c : text)
    c = MixedChar(random);
  return text;
}

// 16 MiB of UTF-8 (a little more, to end on a whole character), made on
// first use.
std::string const& Utf8Text(int mix = kCjkTenth) {
  static std::string texts[3];
  std::string& utf8 = texts[mix];
  if (utf8.empty()) {
    std::mt19937 random(1);
    while (utf8.size() < kLargeBytes)
      utf8 += ToUtf8(TextOfMix(random, 4096, mix));
  }
  return utf8;
}

std::wstring const& WideText(int mix = kCjkTenth) {
  static std::wstring texts[3];
  std::wstring& wide = texts[mix];
  if (wide.empty())
    wide = std::unique_ptr<wchar_t[]>(GStdStringTrans::Utf8ToUnicode(Utf8Text(mix).c_str())).get();
  return wide;
}

std::vector<std::wstring> const& WideBatch() {
  static const std::vector<std::wstring> batch = [] {
    std::mt19937 random(2);
    std::vector<std::wstring> texts;
    for (std::size_t i = 0; i < kBatchStrings; ++i)
      texts.push_back(RandomText(random, 16 + random() % 49, 0.5));
    return texts;
  }();
  return batch;
}

std::vector<std::string> const& Cp936Batch() {
  static const std::vector<std::string> batch = [] {
    std::vector<std::string> texts;
    for (std::wstring const& text : WideBatch())
      texts.push_back(GStdStringTrans::WstringToString(text));
    return texts;
  }();
  return batch;
}

std::wstring const& LargeWide() {
  static const std::wstring text = [] {
    std::mt19937 random(3);
    return RandomText(random, kLargeCp936Chars, 0.5);
  }();
  return text;
}

std::string const& LargeCp936() {
  static const std::string text = GStdStringTrans::WstringToString(LargeWide());
  return text;
}

std::string const& RandomBytes() {
  static const std::string bytes = [] {
    std::mt19937 random(4);
    std::string data(kLargeBytes, '\0');
    for (char& c : data)
      c = static_cast<char>(random());
    return data;
  }();
  return bytes;
}

std::string const& Base64Text() {
  static const std::string text =
      base64_encode(reinterpret_cast<unsigned char const*>(RandomBytes().data()),
                    static_cast<unsigned int>(RandomBytes().size()));
  return text;
}

template <class Collection> std::size_t TotalBytes(Collection const& texts) {
  std::size_t bytes = 0;
  for (auto const& text : texts)
    bytes += text.size() * sizeof text[0];
  return bytes;
}

// --- iconv, the point of comparison for the conversions ------------------------

class Iconv {
public:
  Iconv(char const* to, char const* from) : m_descriptor(iconv_open(to, from)) {}
  Iconv(Iconv const&) = delete;
  Iconv& operator=(Iconv const&) = delete;
  ~Iconv() { iconv_close(m_descriptor); }

  // Converts `size` bytes into `out` of `room` bytes; returns the bytes
  // written.
  std::size_t Convert(void const* in, std::size_t size, void* out, std::size_t room) {
    auto* input = static_cast<char*>(const_cast<void*>(in));
    auto* output = static_cast<char*>(out);
    std::size_t outLeft = room;
    iconv(m_descriptor, &input, &size, &output, &outLeft);
    return room - outLeft;
  }

  // As a caller of iconv would produce a string: sized for the worst case,
  // converted in place, cut to what was written.
  template <class Result, class Source> Result ToString(Source const& text, std::size_t units) {
    Result result(units, typename Result::value_type());
    const std::size_t written =
        Convert(text.data(), text.size() * sizeof text[0], result.data(), units * sizeof result[0]);
    result.resize(written / sizeof result[0]);
    return result;
  }

private:
  iconv_t m_descriptor;
};

void Report(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void CheckEqual(benchmark::State& state, bool equal) {
  if (!equal)
    state.SkipWithError("the result differs from the point of comparison's");
}

// --- UTF-8 -------------------------------------------------------------------------

void BM_Utf8ToWide_Zrn(benchmark::State& state) {
  const auto mix = static_cast<int>(state.range(0));
  std::string const& text = Utf8Text(mix);
  for (auto _ : state) {
    std::unique_ptr<wchar_t[]> wide(GStdStringTrans::Utf8ToUnicode(text.c_str()));
    benchmark::DoNotOptimize(wide.get());
  }
  Report(state, text.size());
}

void BM_Utf8ToWide_Iconv(benchmark::State& state) {
  const auto mix = static_cast<int>(state.range(0));
  std::string const& text = Utf8Text(mix);
  Iconv iconv("WCHAR_T", "UTF-8");
  CheckEqual(state, iconv.ToString<std::wstring>(text, text.size()) == WideText(mix));
  for (auto _ : state) {
    std::unique_ptr<wchar_t[]> wide(new wchar_t[text.size() + 1]);
    const std::size_t written =
        iconv.Convert(text.data(), text.size(), wide.get(), text.size() * sizeof(wchar_t));
    wide[written / sizeof(wchar_t)] = L'\0';
    benchmark::DoNotOptimize(wide.get());
  }
  Report(state, text.size());
}

void BM_WideToUtf8_Zrn(benchmark::State& state) {
  const auto mix = static_cast<int>(state.range(0));
  std::wstring const& text = WideText(mix);
  CheckEqual(state, ToUtf8(text) == Utf8Text(mix));
  for (auto _ : state) {
    std::unique_ptr<char[]> utf8(GStdStringTrans::UnicodeToUtf8(text.c_str()));
    benchmark::DoNotOptimize(utf8.get());
  }
  Report(state, Utf8Text(mix).size());
}

void BM_WideToUtf8_Iconv(benchmark::State& state) {
  const auto mix = static_cast<int>(state.range(0));
  std::wstring const& text = WideText(mix);
  Iconv iconv("UTF-8", "WCHAR_T");
  CheckEqual(state, iconv.ToString<std::string>(text, 4 * text.size()) == Utf8Text(mix));
  for (auto _ : state) {
    std::unique_ptr<char[]> utf8(new char[4 * text.size() + 1]);
    const std::size_t written =
        iconv.Convert(text.data(), text.size() * sizeof(wchar_t), utf8.get(), 4 * text.size());
    utf8[written] = '\0';
    benchmark::DoNotOptimize(utf8.get());
  }
  Report(state, Utf8Text(mix).size());
}

// --- Code page 936 -----------------------------------------------------------------

void BM_Cp936ToWide_Batch_Zrn(benchmark::State& state) {
  auto const& batch = Cp936Batch();
  for (auto _ : state)
    for (std::string const& text : batch)
      benchmark::DoNotOptimize(GStdStringTrans::StringToWString(text));
  Report(state, TotalBytes(batch));
}

void BM_Cp936ToWide_Batch_Iconv(benchmark::State& state) {
  auto const& batch = Cp936Batch();
  Iconv iconv("WCHAR_T", "CP936");
  CheckEqual(state, iconv.ToString<std::wstring>(batch[0], batch[0].size()) == WideBatch()[0]);
  for (auto _ : state)
    for (std::string const& text : batch)
      benchmark::DoNotOptimize(iconv.ToString<std::wstring>(text, text.size()));
  Report(state, TotalBytes(batch));
}

void BM_WideToCp936_Batch_Zrn(benchmark::State& state) {
  auto const& batch = WideBatch();
  for (auto _ : state)
    for (std::wstring const& text : batch)
      benchmark::DoNotOptimize(GStdStringTrans::WstringToString(text));
  Report(state, TotalBytes(Cp936Batch()));
}

void BM_WideToCp936_Batch_Iconv(benchmark::State& state) {
  auto const& batch = WideBatch();
  Iconv iconv("CP936", "WCHAR_T");
  CheckEqual(state, iconv.ToString<std::string>(batch[0], 2 * batch[0].size()) == Cp936Batch()[0]);
  for (auto _ : state)
    for (std::wstring const& text : batch)
      benchmark::DoNotOptimize(iconv.ToString<std::string>(text, 2 * text.size()));
  Report(state, TotalBytes(Cp936Batch()));
}

void BM_Cp936ToWide_Large_Zrn(benchmark::State& state) {
  std::string const& text = LargeCp936();
  CheckEqual(state, GStdStringTrans::StringToWString(text) == LargeWide());
  for (auto _ : state)
    benchmark::DoNotOptimize(GStdStringTrans::StringToWString(text));
  Report(state, text.size());
}

void BM_Cp936ToWide_Large_Iconv(benchmark::State& state) {
  std::string const& text = LargeCp936();
  Iconv iconv("WCHAR_T", "CP936");
  for (auto _ : state)
    benchmark::DoNotOptimize(iconv.ToString<std::wstring>(text, text.size()));
  Report(state, text.size());
}

void BM_WideToCp936_Large_Zrn(benchmark::State& state) {
  std::wstring const& text = LargeWide();
  for (auto _ : state)
    benchmark::DoNotOptimize(GStdStringTrans::WstringToString(text));
  Report(state, LargeCp936().size());
}

void BM_WideToCp936_Large_Iconv(benchmark::State& state) {
  std::wstring const& text = LargeWide();
  Iconv iconv("CP936", "WCHAR_T");
  CheckEqual(state, iconv.ToString<std::string>(text, 2 * text.size()) == LargeCp936());
  for (auto _ : state)
    benchmark::DoNotOptimize(iconv.ToString<std::string>(text, 2 * text.size()));
  Report(state, LargeCp936().size());
}

// --- Base64 ------------------------------------------------------------------------

std::string OpenSslEncode(std::string const& bytes) {
  // Room for the terminator that EVP_EncodeBlock writes.
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  text.resize(static_cast<std::size_t>(EVP_EncodeBlock(
      reinterpret_cast<unsigned char*>(text.data()),
      reinterpret_cast<unsigned char const*>(bytes.data()), static_cast<int>(bytes.size()))));
  return text;
}

std::string OpenSslDecode(std::string const& text) {
  std::string bytes(text.size() / 4 * 3, '\0');
  const int size = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                   reinterpret_cast<unsigned char const*>(text.data()),
                                   static_cast<int>(text.size()));
  // Padding decodes to zero bytes that are not part of the data.
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  bytes.resize(static_cast<std::size_t>(size < 0 ? 0 : size) - padding);
  return bytes;
}

void BM_Base64Encode_Zrn(benchmark::State& state) {
  std::string const& bytes = RandomBytes();
  for (auto _ : state)
    benchmark::DoNotOptimize(base64_encode(reinterpret_cast<unsigned char const*>(bytes.data()),
                                           static_cast<unsigned int>(bytes.size())));
  Report(state, bytes.size());
}

void BM_Base64Encode_OpenSsl(benchmark::State& state) {
  std::string const& bytes = RandomBytes();
  CheckEqual(state, OpenSslEncode(bytes) == Base64Text());
  for (auto _ : state)
    benchmark::DoNotOptimize(OpenSslEncode(bytes));
  Report(state, bytes.size());
}

void BM_Base64Decode_Zrn(benchmark::State& state) {
  std::string const& text = Base64Text();
  CheckEqual(state, base64_decode(text) == RandomBytes());
  for (auto _ : state)
    benchmark::DoNotOptimize(base64_decode(text));
  Report(state, text.size());
}

void BM_Base64Decode_OpenSsl(benchmark::State& state) {
  std::string const& text = Base64Text();
  CheckEqual(state, OpenSslDecode(text) == RandomBytes());
  for (auto _ : state)
    benchmark::DoNotOptimize(OpenSslDecode(text));
  Report(state, text.size());
}

void Configure(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMillisecond)->MinWarmUpTime(kWarmUpSeconds);
}

// One run per text: 10% CJK, 1% CJK, and two- and three-byte characters.
void ConfigureUtf8(benchmark::internal::Benchmark* b) {
  Configure(b);
  b->ArgName("mix")->Arg(kCjkTenth)->Arg(kMostlyAscii)->Arg(kTwoAndThree);
}

void ConfigureBatch(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMicrosecond)->MinWarmUpTime(kWarmUpSeconds);
}

BENCHMARK(BM_Utf8ToWide_Zrn)->Apply(ConfigureUtf8);
BENCHMARK(BM_Utf8ToWide_Iconv)->Apply(ConfigureUtf8);
BENCHMARK(BM_WideToUtf8_Zrn)->Apply(ConfigureUtf8);
BENCHMARK(BM_WideToUtf8_Iconv)->Apply(ConfigureUtf8);
BENCHMARK(BM_Cp936ToWide_Batch_Zrn)->Apply(ConfigureBatch);
BENCHMARK(BM_Cp936ToWide_Batch_Iconv)->Apply(ConfigureBatch);
BENCHMARK(BM_WideToCp936_Batch_Zrn)->Apply(ConfigureBatch);
BENCHMARK(BM_WideToCp936_Batch_Iconv)->Apply(ConfigureBatch);
BENCHMARK(BM_Cp936ToWide_Large_Zrn)->Apply(Configure);
BENCHMARK(BM_Cp936ToWide_Large_Iconv)->Apply(Configure);
BENCHMARK(BM_WideToCp936_Large_Zrn)->Apply(Configure);
BENCHMARK(BM_WideToCp936_Large_Iconv)->Apply(Configure);
BENCHMARK(BM_Base64Encode_Zrn)->Apply(Configure);
BENCHMARK(BM_Base64Encode_OpenSsl)->Apply(Configure);
BENCHMARK(BM_Base64Decode_Zrn)->Apply(Configure);
BENCHMARK(BM_Base64Decode_OpenSsl)->Apply(Configure);

} // namespace

int main(int argc, char** argv) {
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

#include "Platform/Iconv.h"

#include <algorithm>
#include <array>
#include <iconv.h>
#include <langinfo.h>
#include <locale.h>
#include <memory>

namespace zrn::platform {

namespace {

// glibc's name for wchar_t text in the machine's byte order.
constexpr char kWideCharset[] = "WCHAR_T";
// The default locale of narrow text, and its charset.
constexpr std::string_view kChsLocale = "chs";
constexpr char kChsCharset[] = "CP936";
// Threads rarely use more than a couple of charsets; beyond this many the
// oldest descriptor makes room.
constexpr std::size_t kCachedConverters = 8;

const iconv_t kNoConverter = reinterpret_cast<iconv_t>(-1);
const std::size_t kConversionFailed = static_cast<std::size_t>(-1);

enum class Direction : unsigned char { kToWide, kFromWide };

char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return AsciiLower(x) == AsciiLower(y); });
}

// Charsets known to convert every character by itself: a descriptor of one of
// them keeps no state from one conversion to the next, unless a conversion
// failed midway. Descriptors of other charsets are reset before each
// conversion and, when encoding, flushed after it, at the price of one more
// call into iconv each (several percent of converting a short string).
bool IsStateless(std::string_view charset) {
  for (std::string_view known :
       {"CP936", "GBK", "GB18030", "BIG5", "UTF-8", "ANSI_X3.4-1968", "ISO-8859-1", "CP1252"})
    if (EqualsIgnoreCase(charset, known))
      return true;
  return false;
}

// An open descriptor.
struct Descriptor {
  iconv_t converter = kNoConverter;
  bool stateless = false;
};

[[gnu::noinline]] Descriptor Open(std::string_view charset, Direction direction) {
  const std::string name(charset);
  iconv_t const converter = direction == Direction::kToWide
                                ? iconv_open(kWideCharset, name.c_str())
                                : iconv_open(name.c_str(), kWideCharset);
  return {converter, IsStateless(charset)};
}

// The descriptors a thread has opened, closed when the thread ends. Opening
// one costs far more than a short conversion, so each is kept for reuse.
class ConverterCache {
public:
  ConverterCache() = default;
  ConverterCache(ConverterCache const&) = delete;
  ConverterCache& operator=(ConverterCache const&) = delete;
  ~ConverterCache() {
    for (Entry& entry : m_entries)
      Close(entry.descriptor);
    for (Descriptor& descriptor : m_chs)
      Close(descriptor);
  }

  // Code page 936, the charset of nearly every conversion, kept apart in
  // each direction so that finding it takes no search.
  Descriptor const& Chs(Direction direction) {
    Descriptor& descriptor = m_chs[static_cast<std::size_t>(direction)];
    if (descriptor.converter == kNoConverter)
      descriptor = Open(kChsCharset, direction);
    return descriptor;
  }

  // The cached descriptor, or one with kNoConverter.
  Descriptor Find(std::string_view charset, Direction direction) const {
    for (Entry const& entry : m_entries)
      if (entry.descriptor.converter != kNoConverter && entry.direction == direction &&
          entry.charset == charset)
        return entry.descriptor;
    return {};
  }

  void Add(std::string_view charset, Direction direction, Descriptor descriptor) {
    Entry& entry = m_entries[m_next];
    m_next = (m_next + 1) % m_entries.size();
    Close(entry.descriptor);
    entry = Entry{std::string(charset), direction, descriptor};
  }

private:
  struct Entry {
    std::string charset;
    Direction direction = Direction::kToWide;
    Descriptor descriptor;
  };
  static void Close(Descriptor const& descriptor) {
    if (descriptor.converter != kNoConverter)
      iconv_close(descriptor.converter);
  }

  std::array<Entry, kCachedConverters> m_entries;
  std::size_t m_next = 0;
  std::array<Descriptor, 2> m_chs;
};

// The calling thread's cache: created on first use, destroyed at thread exit
// by an owner object. A plain pointer makes the common case one thread-local
// read. Once the cache is gone, conversions made by later thread-exit cleanup
// open descriptors of their own.
thread_local ConverterCache* t_cache = nullptr;
thread_local bool t_cacheGone = false;

struct CacheOwner {
  std::unique_ptr<ConverterCache> cache = std::make_unique<ConverterCache>();
  CacheOwner() { t_cache = cache.get(); }
  CacheOwner(CacheOwner const&) = delete;
  CacheOwner& operator=(CacheOwner const&) = delete;
  ~CacheOwner() {
    t_cache = nullptr;
    t_cacheGone = true;
  }
};

ConverterCache* ThreadCache() {
  if (t_cache == nullptr && !t_cacheGone) {
    thread_local CacheOwner owner;
  }
  return t_cache;
}

// The charset that the name itself spells, without asking the runtime; it may
// be one that iconv does not know. `storage` holds it when the name does not.
std::string_view SpelledCharset(std::string_view locale, std::string& storage) {
  if (EqualsIgnoreCase(locale, "chs"))
    return kChsCharset;
  const std::size_t dot = locale.find('.');
  if (dot == std::string_view::npos)
    return locale;
  std::string_view charset = locale.substr(dot + 1);
  charset = charset.substr(0, charset.find('@'));
  const bool codePage = !charset.empty() && std::all_of(charset.begin(), charset.end(), [](char c) {
    return c >= '0' && c <= '9';
  });
  if (!codePage)
    return charset;
  storage = "CP" + std::string(charset);
  return storage;
}

// The charset of the locale that the runtime knows by this name; empty when it
// knows none. The locale object is private to this call.
std::string RuntimeLocaleCharset(std::string_view locale) {
  const std::string name(locale);
  locale_t const object = newlocale(LC_CTYPE_MASK, name.c_str(), static_cast<locale_t>(nullptr));
  if (object == static_cast<locale_t>(nullptr))
    return {};
  std::string charset = nl_langinfo_l(CODESET, object);
  freelocale(object);
  return charset;
}

// The charset of the locale in force on this thread (uselocale's, otherwise
// the process's).
std::string CurrentCharset() { return nl_langinfo(CODESET); }

// A descriptor for one conversion, in its initial state: the thread's cached
// one, or, once the cache is gone, one of its own.
class Converter {
public:
  Converter(std::string_view locale, Direction direction)
      : m_direction(direction), m_cache(ThreadCache()) {
    if (locale == kChsLocale && m_cache)
      Use(m_cache->Chs(direction));
    if (!*this)
      AcquireByName(locale);
    if (*this && !m_stateless)
      Reset();
  }
  Converter(Converter const&) = delete;
  Converter& operator=(Converter const&) = delete;
  ~Converter() {
    if (!*this)
      return;
    if (m_owned)
      iconv_close(m_converter);
    else if (m_failed)
      Reset(); // so that the cached descriptor starts clean next time
  }

  explicit operator bool() const { return m_converter != kNoConverter; }

  // Converts as much of the input as the charset and the output allow.
  void Run(char const* in, std::size_t inSize, char*& out, std::size_t& outLeft) {
    auto* input = const_cast<char*>(in);
    if (iconv(m_converter, &input, &inSize, &out, &outLeft) == kConversionFailed)
      m_failed = true;
  }

  // Writes what returns a stateful charset to its initial state, if it fits.
  void Finish(char*& out, std::size_t& outLeft) {
    if (!m_stateless && iconv(m_converter, nullptr, nullptr, &out, &outLeft) == kConversionFailed)
      m_failed = true;
  }

private:
  void Reset() { iconv(m_converter, nullptr, nullptr, nullptr, nullptr); }

  // Field by field: copied whole, the descriptor would go through memory
  // and stall the reads of its fields that follow at once.
  void Use(Descriptor const& descriptor) {
    m_converter = descriptor.converter;
    m_stateless = descriptor.stateless;
  }

  // Kept out of line: the common case, "chs", never needs it.
  [[gnu::noinline]] void AcquireByName(std::string_view locale) {
    // An empty name would make iconv pick the locale's charset by itself;
    // the runtime's reading of "" is the one that counts.
    std::string storage;
    if (!locale.empty())
      Acquire(SpelledCharset(locale, storage));
    if (!*this)
      Acquire(RuntimeLocaleCharset(locale));
    if (!*this)
      Acquire(CurrentCharset());
  }

  void Acquire(std::string_view charset) {
    if (charset.empty())
      return;
    if (m_cache) {
      Use(m_cache->Find(charset, m_direction));
      if (*this)
        return;
    }
    const Descriptor opened = Open(charset, m_direction);
    Use(opened);
    if (!*this)
      return;
    if (m_cache)
      m_cache->Add(charset, m_direction, opened);
    else
      m_owned = true;
  }

  Direction m_direction;
  ConverterCache* m_cache;
  iconv_t m_converter = kNoConverter;
  bool m_stateless = false;
  bool m_owned = false;
  bool m_failed = false;
};

// Narrow text ends at its first NUL byte, as a C string would: the input of
// decoding, and the output of encoding (which also ends encodings that use
// NUL bytes for other characters where a C string of them would end).
std::string_view UpToNul(std::string_view text) { return text.substr(0, text.find('\0')); }

} // namespace

// Both build their result in place, returned by every path so that it is
// never copied or moved.
std::wstring DecodeNarrow(std::string_view text, std::string_view locale) {
  std::wstring result;
  text = UpToNul(text);
  if (text.empty())
    return result;
  Converter converter(locale, Direction::kToWide);
  if (!converter)
    return result;
  // Room for one character per byte, which every charset of a locale needs
  // at most; anything beyond would be cut.
  result.resize(text.size());
  char* out = reinterpret_cast<char*>(result.data());
  std::size_t outLeft = result.size() * sizeof(wchar_t);
  converter.Run(text.data(), text.size(), out, outLeft);
  result.resize(result.size() - outLeft / sizeof(wchar_t));
  return result;
}

std::string EncodeWide(std::wstring_view text, std::string_view locale, std::size_t limit) {
  std::string result;
  if (text.empty() || limit == 0)
    return result;
  Converter converter(locale, Direction::kFromWide);
  if (!converter)
    return result;
  result.resize(limit);
  char* out = result.data();
  std::size_t outLeft = result.size();
  converter.Run(reinterpret_cast<char const*>(text.data()), text.size() * sizeof(wchar_t), out,
                outLeft);
  converter.Finish(out, outLeft);
  result.resize(UpToNul({result.data(), result.size() - outLeft}).size());
  return result;
}

} // namespace zrn::platform

// Opens arbitrary bytes as a zip archive and extracts every entry, then adds
// an entry, flushes (which copies the other entries' stored data as it is),
// and reads the result back. Whatever the bytes claim, this must end, stay
// inside its buffers, and allocate no more than they could justify.
//
// The entry names come from libzip directly, since the archive class offers
// no listing. Entries claiming more than kMaxExtract bytes are skipped, and
// at most kMaxEntries are visited.
#include <zrn/IO/MemZip.h>

#include <zip.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr zip_uint64_t kMaxExtract = 64u << 20;
constexpr zip_int64_t kMaxEntries = 256;

// The names of the entries small enough to extract.
std::vector<std::string> EntryNames(std::uint8_t const* data, std::size_t size) {
  std::vector<std::string> names;
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* source = zip_source_buffer_create(data, size, 0, &error);
  zip_t* archive = source ? zip_open_from_source(source, ZIP_RDONLY, &error) : nullptr;
  if (!archive) {
    zip_source_free(source);
  } else {
    const zip_int64_t count = std::min(zip_get_num_entries(archive, 0), kMaxEntries);
    for (zip_int64_t i = 0; i < count; ++i) {
      zip_stat_t stat;
      if (zip_stat_index(archive, static_cast<zip_uint64_t>(i), 0, &stat) == 0 &&
          (stat.valid & ZIP_STAT_NAME) && (stat.valid & ZIP_STAT_SIZE) && stat.size <= kMaxExtract)
        names.emplace_back(stat.name);
    }
    zip_discard(archive);
  }
  zip_error_fini(&error);
  return names;
}

void ExtractAll(zrn::CMemZip& zip, std::vector<std::string> const& names) {
  for (std::string const& name : names) {
    unsigned long long size = 0;
    std::unique_ptr<char[]> bytes(zip.Extract(name.c_str(), size));
    if (!bytes && size != 0)
      std::abort(); // a null result always comes with size 0
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  const std::vector<std::string> names = EntryNames(data, size);
  zrn::CMemZip zip(reinterpret_cast<char const*>(data), size);
  if (!zip)
    return 0;
  ExtractAll(zip, names);

  zip.Add("added", reinterpret_cast<char const*>(data), std::min<std::size_t>(size, 64));
  unsigned long long flushedSize = 0;
  char* flushed = zip.FlushToBytes(flushedSize);
  if (flushed) {
    zrn::CMemZip again(flushed, flushedSize);
    ExtractAll(again, names);
    ExtractAll(zip, names); // reopened from its own finished archive
  }
  std::free(flushed);
  return 0;
}

#include "IO/ArchiveReaderParts.h"

#include "IO/ArchiveFrame.h"
#include "IO/Utf16.h"

#include <zrn/IO/IODevice.h>
#include <zrn/Text/StringTrans.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>

namespace zrn::detail {

namespace {

// A device is read in windows of at least this size.
constexpr std::size_t kWindowSize = 256 * 1024;

// The product table and schemes hold at least this many bytes per entry, so
// that a count is checked against the bytes left before anything is read.
constexpr long long kMinProductBytes = 4 + 1;
constexpr long long kMinSchemeEntryBytes = 2 + 4;
constexpr long long kMinSchemeProductBytes = 4 + 4;
constexpr long long kMinPropertyBytes = 2 + 4;

} // namespace

// --- Bytes ---------------------------------------------------------------------------------

CByteSource::CByteSource(GIODevice& device) : m_pDevice(&device) {
  device.seek(0);
  m_nSize = device.RemainingSize();
  if (m_nSize >= 0)
    return;
  // The device cannot tell its size: count its bytes once.
  m_window.resize(kWindowSize);
  m_nSize = 0;
  while (const unsigned got = device.Read(m_window.data(), kWindowSize))
    m_nSize += got;
  m_nWindowStart = -1;
  m_window.clear();
}

char const* CByteSource::Window(long long offset, std::size_t length) {
  const long long windowEnd = m_nWindowStart + static_cast<long long>(m_window.size());
  if (offset >= m_nWindowStart && offset + static_cast<long long>(length) <= windowEnd &&
      !m_window.empty())
    return m_window.data() + (offset - m_nWindowStart);
  const auto wanted = static_cast<std::size_t>(
      std::min<long long>(std::max(length, kWindowSize), m_nSize - offset));
  m_window.resize(wanted);
  m_nWindowStart = offset;
  m_pDevice->seek(offset);
  std::size_t done = 0;
  while (done < wanted) {
    const unsigned got =
        m_pDevice->Read(m_window.data() + done, static_cast<unsigned>(wanted - done));
    if (got == 0)
      break;
    done += got;
  }
  if (done < wanted) {
    // Shown as zeros, and the walk reports the failure at its end.
    std::fill(m_window.begin() + static_cast<std::ptrdiff_t>(done), m_window.end(), '\0');
    m_bFailed = true;
  }
  return m_window.data();
}

bool sFieldCursor::Flag(bool& value) {
  unsigned char byte = 0;
  if (Left() < 1)
    return false;
  std::memcpy(&byte, source->At(pos, 1), 1);
  if (byte > 1)
    return false;
  value = byte == 1;
  ++pos;
  return true;
}

bool sFieldCursor::Text(std::size_t unitSize, long long& at, std::size_t& bytes) {
  int length = 0;
  const long long start = pos;
  if (!Get(length) || length < 0)
    return pos = start, false;
  bytes = StoredPayloadBytes(length, unitSize);
  if (static_cast<unsigned long long>(Left()) < bytes)
    return pos = start, false;
  at = pos;
  pos += static_cast<long long>(bytes);
  return true;
}

// --- Objects -------------------------------------------------------------------------------

namespace {

// Past the object at `pos` (headers checked within `end`): its end, or -1
// when it does not fit; `cut` tells whether it failed by running past `end`.
long long SkipOneObject(CByteSource& source, long long pos, long long end, bool& cut) {
  cut = true;
  if (end - pos < static_cast<long long>(kObjectHeaderSize))
    return -1;
  const sObjectHeader object = DecodeObjectHeader(source.At(pos, kObjectHeaderSize));
  if (object.version == 0)
    return cut = false, -1;
  pos += kObjectHeaderSize;
  for (unsigned i = 0; i < object.blockCount; ++i) {
    if (end - pos < static_cast<long long>(kBlockHeaderSize))
      return -1;
    const sBlockHeader block = DecodeBlockHeader(source.At(pos, kBlockHeaderSize));
    pos += kBlockHeaderSize;
    if (static_cast<unsigned long long>(end - pos) < block.size)
      return -1;
    pos += block.size;
  }
  return pos;
}

} // namespace

EScan ScanObjects(CByteSource& source, long long begin, long long end, bool allowCut) {
  if (begin >= end)
    return EScan::No;
  for (long long pos = begin; pos < end;) {
    bool cut = false;
    const long long next = SkipOneObject(source, pos, end, cut);
    if (next < 0) {
      const bool wholeFirstHeader =
          pos > begin || end - begin >= static_cast<long long>(kObjectHeaderSize);
      return allowCut && cut && wholeFirstHeader ? EScan::Cut : EScan::No;
    }
    pos = next;
  }
  return EScan::Exact;
}

long long ObjectEnd(CByteSource& source, long long begin, long long end) {
  bool cut = false;
  return SkipOneObject(source, begin, end, cut);
}

// --- Values --------------------------------------------------------------------------------

char const* VariantTypeName(int type) {
  switch (type) {
  case -1:
    return "null";
  case 1:
    return "int";
  case 2:
    return "double";
  case 10:
    return "box";
  case 11:
    return "vec2d";
  case 12:
    return "vec3d";
  case 14:
    return "int64";
  case 15:
    return "bool";
  case 16:
    return "file address";
  case 21:
    return "coord3d";
  case 100:
    return "char";
  case 101:
    return "uchar";
  case 102:
    return "short";
  case 103:
    return "ushort";
  case 104:
    return "uint";
  case 105:
    return "float";
  case 106:
    return "uint64";
  case 107:
    return "object id";
  case 1000:
    return "object";
  case 1001:
    return "string";
  case 1002:
    return "wstring";
  case 1003:
    return "memory stream";
  case 1004:
    return "colour";
  case 1500:
    return "project";
  default:
    return type >= 1000 ? "custom" : nullptr;
  }
}

namespace {

// The bytes a plain variant value of `type` takes, or -1 when the type is
// none the library writes below 1000.
int PlainWidth(int type) {
  switch (type) {
  case 15:
  case 100:
  case 101:
    return 1;
  case 102:
  case 103:
    return 2;
  case 1:
  case 104:
  case 105:
    return 4;
  case 2:
  case 14:
  case 106:
  case 107:
    return 8;
  case -1:
  case 10:
  case 11:
  case 12:
  case 16:
  case 21:
    return 0;
  default:
    return -1;
  }
}

template <class T> void AppendNumber(std::string& out, char const* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  char buffer[64];
  const auto done = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, done.ptr);
}

void FormatPlain(int type, char const* bytes, std::string& out) {
  switch (type) {
  case 1:
    return AppendNumber<int>(out, bytes);
  case 2:
    return AppendNumber<double>(out, bytes);
  case 14:
    return AppendNumber<long long>(out, bytes);
  case 15:
    out += bytes[0] ? "true" : "false";
    return;
  case 100:
    return AppendNumber<signed char>(out, bytes);
  case 101:
    return AppendNumber<unsigned char>(out, bytes);
  case 102:
    return AppendNumber<short>(out, bytes);
  case 103:
    return AppendNumber<unsigned short>(out, bytes);
  case 104:
    return AppendNumber<unsigned>(out, bytes);
  case 105:
    return AppendNumber<float>(out, bytes);
  case 106:
  case 107:
    return AppendNumber<unsigned long long>(out, bytes);
  default:
    return; // a type that carries no value
  }
}

// Appends the UTF-16 text of `bytes` bytes at `at` as UTF-8, cut at the limit.
bool AppendWide(sPartSink& sink, CByteSource& source, long long at, std::size_t bytes) {
  const bool cut = bytes > sink.leafLimit;
  const std::size_t shown =
      cut ? static_cast<std::size_t>(sink.leafLimit) & ~std::size_t{1} : bytes;
  std::wstring wide;
  DecodeUtf16(std::string_view(source.At(at, shown), shown), wide);
  const std::unique_ptr<char[]> utf8(GStdStringTrans::UnicodeToUtf8(wide.c_str()));
  if (utf8)
    sink.text += utf8.get();
  return cut;
}

bool AppendNarrow(sPartSink& sink, CByteSource& source, long long at, std::size_t bytes) {
  const bool cut = bytes > sink.leafLimit;
  const std::size_t shown = cut ? static_cast<std::size_t>(sink.leafLimit) : bytes;
  sink.text.append(source.At(at, shown), shown);
  return cut;
}

sArchiveNamed Part(char const* name, long long offset, long long end, long long id) {
  return {offset, static_cast<unsigned long long>(end - offset), name, id, -1, nullptr, {}, false,
          false};
}

// A count written as an int: not negative, and each entry needing at least
// `minBytes` of what is left.
bool Count(sFieldCursor& cursor, long long minBytes, int& count) {
  return cursor.Get(count) && count >= 0 && count <= cursor.Left() / minBytes;
}

// A name (wide text) reported as part `name` with `id`; checking only
// without a sink.
bool NamedText(sFieldCursor& cursor, sPartSink* sink, char const* name, long long id,
               long long start) {
  long long at = 0;
  std::size_t bytes = 0;
  if (!cursor.Text(2, at, bytes))
    return false;
  if (!sink)
    return true;
  sink->text.clear();
  sArchiveNamed part = Part(name, start, cursor.pos, id);
  part.quoted = true;
  part.textCut = AppendWide(*sink, *cursor.source, at, bytes);
  part.text = sink->text;
  sink->visitor->Named(part);
  return true;
}

bool ProductTable(sFieldCursor& cursor, sPartSink* sink) {
  int count = 0;
  if (!Count(cursor, kMinProductBytes, count))
    return false;
  for (int i = 0; i < count; ++i) {
    const long long start = cursor.pos;
    long long at = 0;
    std::size_t bytes = 0;
    unsigned char number = 0;
    if (!cursor.Text(2, at, bytes) || !cursor.Get(number))
      return false;
    if (sink) {
      sink->text.clear();
      sArchiveNamed part = Part("product", start, cursor.pos, number);
      part.quoted = true;
      part.textCut = AppendWide(*sink, *cursor.source, at, bytes);
      part.text = sink->text;
      sink->visitor->Named(part);
    }
  }
  return true;
}

bool SchemeProduct(sFieldCursor& cursor, sPartSink* sink) {
  int count = 0;
  int previous = -1;
  if (!Count(cursor, kMinSchemeEntryBytes, count))
    return false;
  for (int i = 0; i < count; ++i) {
    const long long start = cursor.pos;
    unsigned short id = 0;
    // The writer goes through its map in identifier order.
    if (!cursor.Get(id) || id <= previous || !NamedText(cursor, sink, "scheme entry", id, start))
      return false;
    previous = id;
  }
  return true;
}

// Runs `part` on a copy of the cursor without reporting: where it ends, or -1.
template <class Part> long long Extent(sFieldCursor const& cursor, Part&& part) {
  sFieldCursor probe = cursor;
  return part(probe, nullptr) ? probe.pos : -1;
}

// Reports a group: its extent first (a checking pass), then its parts.
template <class Parts>
bool Group(sFieldCursor& cursor, sPartSink* sink, sArchiveNamed part, Parts&& parts) {
  if (!sink)
    return parts(cursor, sink);
  const long long end = Extent(cursor, parts);
  if (end < 0)
    return false;
  part.size = static_cast<unsigned long long>(end - part.offset);
  sink->visitor->BeginNamed(part);
  const bool done = parts(cursor, sink);
  sink->visitor->EndNamed(cursor.pos);
  return done;
}

bool ClassScheme(sFieldCursor& cursor, sPartSink* sink) {
  int products = 0;
  if (!Count(cursor, kMinSchemeProductBytes, products))
    return false;
  for (int i = 0; i < products; ++i) {
    long long at = 0;
    std::size_t bytes = 0;
    const long long start = cursor.pos;
    if (!cursor.Text(2, at, bytes))
      return false;
    sArchiveNamed part = Part("scheme product", start, start, -1);
    bool cut = false;
    if (sink) {
      sink->text.clear();
      cut = AppendWide(*sink, *cursor.source, at, bytes);
    }
    // The name goes to the visitor in a string of its own: the entries reuse the sink's.
    const std::string name = sink ? sink->text : std::string();
    part.text = name;
    part.textCut = cut;
    part.quoted = true;
    if (!Group(cursor, sink, part, SchemeProduct))
      return false;
  }
  return true;
}

bool SchemePart(sFieldCursor& cursor, sPartSink* sink) {
  bool due = false;
  bool first = false;
  if (!cursor.Flag(due))
    return false;
  if (!due)
    return true;
  if (!cursor.Flag(first))
    return false;
  if (first &&
      !Group(cursor, sink, Part("product table", cursor.pos, cursor.pos, -1), ProductTable))
    return false;
  int type = 0;
  if (sFieldCursor peek = cursor; !peek.Get(type))
    return false;
  return Group(cursor, sink, Part("scheme", cursor.pos, cursor.pos, type),
               [](sFieldCursor& c, sPartSink* s) {
                 int classType = 0;
                 return c.Get(classType) && ClassScheme(c, s);
               });
}

// The custom-object part of a variant (types 1000 and above).
bool CustomValue(sFieldCursor& cursor, sPartSink* sink, int type, sArchiveNamed& part,
                 sPropertyStep& step) {
  bool hasPayload = false;
  bool refPtr = false;
  bool byFactory = false;
  if (!cursor.Flag(hasPayload) || !cursor.Flag(refPtr))
    return false;
  if (!hasPayload) {
    if (sink)
      sink->text = "no payload";
    return true;
  }
  if (!cursor.Flag(byFactory))
    return false;
  if (!byFactory) {
    step.objectBegin = cursor.pos;
    step.objectEnd = ObjectEnd(*cursor.source, cursor.pos, cursor.end);
    if (step.objectEnd < 0)
      return false;
    cursor.pos = step.objectEnd;
    if (sink)
      sink->text = "object";
    return true;
  }
  long long at = 0;
  std::size_t bytes = 0;
  unsigned colour = 0;
  switch (type) {
  case 1001:
  case 1002:
    if (!cursor.Text(type == 1001 ? 1 : 2, at, bytes))
      return false;
    part.quoted = true;
    if (sink)
      part.textCut = type == 1001 ? AppendNarrow(*sink, *cursor.source, at, bytes)
                                  : AppendWide(*sink, *cursor.source, at, bytes);
    return true;
  case 1004:
    if (!cursor.Get(colour))
      return false;
    if (sink) {
      char hex[16];
      std::snprintf(hex, sizeof hex, "0x%08X", colour);
      sink->text = hex;
    }
    return true;
  default:
    // A payload written by a host's own function: its length is unknown.
    return false;
  }
}

} // namespace

bool ReadCollectionHead(sFieldCursor& cursor, sPartSink* sink, int& valueCount) {
  return SchemePart(cursor, sink) && Count(cursor, kMinPropertyBytes, valueCount);
}

bool ReadProperty(sFieldCursor& cursor, sPartSink* sink, int previousId, sPropertyStep& step) {
  const long long start = cursor.pos;
  unsigned short id = 0;
  int type = 0;
  if (!cursor.Get(id) || id <= previousId || !cursor.Get(type))
    return false;
  step = {};
  step.id = id;
  sArchiveNamed part = Part("property", start, start, id);
  part.dataType = type;
  part.typeName = VariantTypeName(type);
  if (sink)
    sink->text.clear();
  if (type >= 1000) {
    if (!CustomValue(cursor, sink, type, part, step))
      return false;
  } else {
    const int width = PlainWidth(type);
    if (width < 0 || cursor.Left() < width)
      return false;
    char const* bytes = cursor.source->At(cursor.pos, static_cast<std::size_t>(width));
    if (type == 15 && static_cast<unsigned char>(bytes[0]) > 1)
      return false;
    if (sink)
      FormatPlain(type, bytes, sink->text);
    cursor.pos += width;
  }
  if (!sink)
    return true;
  part.size = static_cast<unsigned long long>(cursor.pos - start);
  part.text = sink->text;
  if (step.objectBegin >= 0)
    sink->visitor->BeginNamed(part);
  else
    sink->visitor->Named(part);
  return true;
}

bool IsPropertyCollection(CByteSource& source, long long begin, long long end) {
  sFieldCursor cursor{&source, begin, end};
  bool due = false;
  int count = 0;
  if (cursor.Left() < 1 + 4 || !cursor.Flag(due))
    return false;
  cursor.pos = begin;
  if (!ReadCollectionHead(cursor, nullptr, count))
    return false;
  // Nothing but a flag and a count of zero says too little to be sure.
  if (!due && count == 0)
    return false;
  sPropertyStep step;
  for (int i = 0; i < count; ++i)
    if (!ReadProperty(cursor, nullptr, step.id, step))
      return false;
  return cursor.pos == end;
}

} // namespace zrn::detail

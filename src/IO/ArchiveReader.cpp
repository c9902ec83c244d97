#include <zrn/IO/ArchiveReader.h>

#include "IO/ArchiveFrame.h"
#include "IO/ArchiveReaderParts.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <string>
#include <vector>

namespace zrn {

IArchiveVisitor::~IArchiveVisitor() = default;
void IArchiveVisitor::BeginObject(sArchiveObject const&) {}
void IArchiveVisitor::EndObject(long long) {}
void IArchiveVisitor::BeginBlock(sArchiveBlock const&) {}
void IArchiveVisitor::EndBlock(long long) {}
void IArchiveVisitor::Leaf(sArchiveLeaf const&) {}
void IArchiveVisitor::BeginNamed(sArchiveNamed const&) {}
void IArchiveVisitor::EndNamed(long long) {}
void IArchiveVisitor::Named(sArchiveNamed const&) {}

namespace {

using detail::CByteSource;
using detail::EScan;

// Leaf bytes go to the visitor in pieces of at most this size.
constexpr std::size_t kLeafPiece = 64 * 1024;

enum class EFrame : unsigned char {
  Objects,    // a region read as a sequence of objects
  Object,     // an object's blocks
  Block,      // a block whose payload is being walked
  Collection, // a property collection's values
  Named       // a recognised part holding an object
};

struct sFrame {
  EFrame kind;
  bool truncated = false; // Block: its payload runs past the stream's end
  bool project = false;   // Object: the project record
  bool started = false;   // Collection: its head has been reported
  unsigned char blocksLeft = 0;
  long long start = 0; // first byte
  long long pos = 0;   // next byte to read
  long long end = 0;   // end of the region the frame reads within
  int valuesLeft = 0;
  int lastId = -1;
};

// "<what>: <needed> bytes needed, <left> remain".
std::string Short(char const* what, long long needed, long long left) {
  return std::string(what) + ": " + std::to_string(needed) + " bytes needed, " +
         std::to_string(left) + " remain";
}

} // namespace

class CArchiveReader::CWalk {
public:
  CWalk(CArchiveReader& options, CByteSource& source, IArchiveVisitor& visitor)
      : m_options(options), m_source(source),
        m_visitor(visitor), m_sink{&visitor, options.m_nLeafLimit, {}} {}

  bool Run() {
    const long long size = m_source.Size();
    if (m_options.m_nMaxDepth == 0)
      Fail(0, "nesting deeper than 0 levels");
    else if (m_options.m_eRoot == EArchiveRoot::Stream &&
             detail::IsPropertyCollection(m_source, 0, size))
      Push({.kind = EFrame::Collection, .start = 0, .pos = 0, .end = size});
    else
      Push({.kind = EFrame::Objects, .start = 0, .pos = 0, .end = size});
    while (!m_frames.empty() && m_options.m_nStoppedAt < 0)
      Step();
    if (m_options.m_nStoppedAt < 0 && m_source.Failed())
      Fail(size, "the device supplied fewer bytes than it announced");
    Unwind();
    return m_options.m_nStoppedAt < 0;
  }

private:
  void Step() {
    switch (m_frames.back().kind) {
    case EFrame::Objects:
      return StepObjects();
    case EFrame::Object:
      return StepObject();
    case EFrame::Block:
      return StepBlock();
    case EFrame::Collection:
      return StepCollection();
    case EFrame::Named:
      return StepNamed();
    }
  }

  // Whether `levels` more frames fit; stops the walk when not. Asked before
  // the Begin event of what the frames hold, so that every Begin has its End.
  bool Room(long long at, std::size_t levels) {
    if (m_frames.size() + levels <= m_options.m_nMaxDepth)
      return true;
    Fail(at, "nesting deeper than " + std::to_string(m_options.m_nMaxDepth) + " levels");
    return false;
  }

  void Push(sFrame const& frame) { m_frames.push_back(frame); }

  // Ends the top frame; an object hands its end to the region around it.
  void Pop() {
    const sFrame done = m_frames.back();
    m_frames.pop_back();
    if (done.kind == EFrame::Object && !m_frames.empty())
      m_frames.back().pos = done.pos;
  }

  void Fail(long long at, std::string why) {
    if (m_options.m_nStoppedAt >= 0)
      return;
    m_options.m_nStoppedAt = at;
    m_options.m_strError = std::move(why);
  }

  // Closes what is still open after a stop, innermost first.
  void Unwind() {
    const long long at = std::max<long long>(m_options.m_nStoppedAt, 0);
    for (; !m_frames.empty(); m_frames.pop_back()) {
      switch (m_frames.back().kind) {
      case EFrame::Object:
        m_visitor.EndObject(at);
        break;
      case EFrame::Block:
        m_visitor.EndBlock(at);
        break;
      case EFrame::Collection:
        if (m_frames.back().started)
          m_visitor.EndNamed(at);
        break;
      case EFrame::Named:
        m_visitor.EndNamed(at);
        break;
      case EFrame::Objects:
        break;
      }
    }
  }

  void StepObjects() {
    sFrame& region = m_frames.back();
    if (region.pos >= region.end)
      return Pop();
    const long long at = region.pos;
    if (region.end - at < static_cast<long long>(detail::kObjectHeaderSize))
      return Fail(at, Short("object header cut short", detail::kObjectHeaderSize, region.end - at));
    const detail::sObjectHeader header =
        detail::DecodeObjectHeader(m_source.At(at, detail::kObjectHeaderSize));
    if (!Room(at, 1))
      return;
    const bool project =
        m_options.m_eRoot == EArchiveRoot::ProjectRecord && at == 0 && m_frames.size() == 1;
    m_visitor.BeginObject(
        {at, header.version, header.blockCount, project ? "project record" : nullptr});
    Push({.kind = EFrame::Object,
          .project = project,
          .blocksLeft = header.blockCount,
          .start = at,
          .pos = at + static_cast<long long>(detail::kObjectHeaderSize),
          .end = region.end});
  }

  void StepObject() {
    sFrame& object = m_frames.back();
    if (object.blocksLeft == 0) {
      m_visitor.EndObject(object.pos);
      return Pop();
    }
    const long long at = object.pos;
    if (object.end - at < static_cast<long long>(detail::kBlockHeaderSize))
      return Fail(at, object.end == at ? "the object at " + std::to_string(object.start) +
                                             " announces more blocks than the stream holds"
                                       : Short("block header cut short", detail::kBlockHeaderSize,
                                               object.end - at));
    const detail::sBlockHeader header =
        detail::DecodeBlockHeader(m_source.At(at, detail::kBlockHeaderSize));
    if (!Room(at, 2))
      return;
    --object.blocksLeft;
    const long long payload = at + static_cast<long long>(detail::kBlockHeaderSize);
    const bool truncated = static_cast<unsigned long long>(object.end - payload) < header.size;
    const long long end = truncated ? object.end : payload + header.size;
    object.pos = end;
    m_visitor.BeginBlock({at, header.tag, header.size, truncated});
    if (truncated)
      return TruncatedPayload(at, payload, end);
    if (object.project && header.tag == 1 && header.size == 8)
      return Counter(payload, end);
    if (detail::ScanObjects(m_source, payload, end, false) == EScan::Exact) {
      Push({.kind = EFrame::Block, .start = at, .pos = end, .end = end});
      return Push({.kind = EFrame::Objects, .start = payload, .pos = payload, .end = end});
    }
    if (detail::IsPropertyCollection(m_source, payload, end)) {
      Push({.kind = EFrame::Block, .start = at, .pos = end, .end = end});
      return Push({.kind = EFrame::Collection, .start = payload, .pos = payload, .end = end});
    }
    Leaf(payload, end);
    m_visitor.EndBlock(end);
  }

  // A payload cut by the end of the stream: its objects as far as they go,
  // or its bytes; the block then stops the walk.
  void TruncatedPayload(long long at, long long payload, long long end) {
    Push({.kind = EFrame::Block, .truncated = true, .start = at, .pos = end, .end = end});
    if (detail::ScanObjects(m_source, payload, end, true) != EScan::No)
      return Push({.kind = EFrame::Objects, .start = payload, .pos = payload, .end = end});
    Leaf(payload, end);
  }

  void Counter(long long payload, long long end) {
    long long counter = 0;
    std::memcpy(&counter, m_source.At(payload, sizeof counter), sizeof counter);
    m_visitor.Named({payload, 8, "unique-ID counter", counter, -1, nullptr, {}, false, false});
    m_visitor.EndBlock(end);
  }

  void StepBlock() {
    sFrame const& block = m_frames.back();
    if (block.truncated) {
      const long long payload = block.start + static_cast<long long>(detail::kBlockHeaderSize);
      const unsigned int size =
          detail::DecodeBlockHeader(m_source.At(block.start, detail::kBlockHeaderSize)).size;
      return Fail(block.start, Short("block payload cut short", size, block.end - payload));
    }
    m_visitor.EndBlock(block.end);
    Pop();
  }

  void StepCollection() {
    sFrame& collection = m_frames.back();
    detail::sFieldCursor cursor{&m_source, collection.pos, collection.end};
    if (!collection.started) {
      collection.started = true;
      m_visitor.BeginNamed({collection.start,
                            static_cast<unsigned long long>(collection.end - collection.start),
                            "property collection",
                            -1,
                            -1,
                            nullptr,
                            {},
                            false,
                            false});
      if (!detail::ReadCollectionHead(cursor, &m_sink, collection.valuesLeft))
        return Fail(collection.pos, "unreadable property collection");
      collection.pos = cursor.pos;
      return;
    }
    if (collection.valuesLeft == 0) {
      m_visitor.EndNamed(collection.end);
      return Pop();
    }
    if (!Room(collection.pos, 2))
      return;
    detail::sPropertyStep step;
    if (!detail::ReadProperty(cursor, &m_sink, collection.lastId, step))
      return Fail(collection.pos, "unreadable property");
    --collection.valuesLeft;
    collection.lastId = step.id;
    collection.pos = cursor.pos;
    if (step.objectBegin < 0)
      return;
    const long long start = step.objectBegin;
    Push({.kind = EFrame::Named, .start = start, .pos = step.objectEnd, .end = step.objectEnd});
    Push({.kind = EFrame::Objects, .start = start, .pos = start, .end = step.objectEnd});
  }

  void StepNamed() {
    m_visitor.EndNamed(m_frames.back().end);
    Pop();
  }

  void Leaf(long long begin, long long end) {
    const auto size = static_cast<unsigned long long>(end - begin);
    const unsigned long long shown = std::min(size, m_options.m_nLeafLimit);
    unsigned long long at = 0;
    do {
      const auto piece =
          static_cast<std::size_t>(std::min<unsigned long long>(shown - at, kLeafPiece));
      char const* bytes = piece ? m_source.At(begin + static_cast<long long>(at), piece) : "";
      m_visitor.Leaf({begin, size, at, std::string_view(bytes, piece)});
      at += piece;
    } while (at < shown);
  }

  CArchiveReader& m_options;
  CByteSource& m_source;
  IArchiveVisitor& m_visitor;
  detail::sPartSink m_sink;
  std::vector<sFrame> m_frames;
};

CArchiveReader::CArchiveReader() = default;
CArchiveReader::~CArchiveReader() = default;

bool CArchiveReader::Read(void const* data, std::size_t size, IArchiveVisitor& visitor) {
  assert((data || size == 0) && "a stream of bytes needs its bytes");
  CByteSource source(static_cast<char const*>(data), size);
  m_nStreamSize = source.Size();
  m_nStoppedAt = -1;
  m_strError.clear();
  return CWalk(*this, source, visitor).Run();
}

bool CArchiveReader::Read(GIODevice& device, IArchiveVisitor& visitor) {
  CByteSource source(device);
  m_nStreamSize = source.Size();
  m_nStoppedAt = -1;
  m_strError.clear();
  return CWalk(*this, source, visitor).Run();
}

} // namespace zrn

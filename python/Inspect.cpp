// zrn.inspect(): the structure of an archive stream, as the library's
// archive reader sees it, built into Python objects.
#include "Module.h"

#include <pybind11/stl.h>

#include <zrn/IO/ArchiveReader.h>

#include <optional>
#include <string>
#include <vector>

namespace py = pybind11;

namespace zrn::python {

namespace {

/// zrn.ArchiveObject: an object of the stream and its blocks.
struct SObject {
  long long offset = 0;
  long long end = 0;
  int version = 0;
  int blockCount = 0;
  std::optional<std::string> name;
  py::list blocks;
};

/// zrn.ArchiveBlock: a tagged block; its payload is nested objects or parts
/// (`items`) or raw bytes (`data`).
struct SBlock {
  long long offset = 0;
  long long end = 0;
  int tag = 0;
  unsigned size = 0;
  bool truncated = false;
  py::list items;
  py::object data = py::none();
};

/// zrn.ArchivePart: a payload the library writes (a property collection, a
/// scheme, a property...), recognised by the reader.
struct SPart {
  long long offset = 0;
  long long end = 0;
  std::string name;
  long long id = 0;
  int dataType = -1;
  std::optional<std::string> typeName;
  std::string text;
  bool textCut = false;
  bool quoted = false;
  py::list parts;
  py::object data = py::none();
};

/// One visitor call, kept while the reader runs without the GIL.
struct SEvent {
  enum EKind { kObject, kBlock, kPart, kNamed, kLeaf, kEnd } kind = kEnd;
  long long offset = 0;
  long long a = 0; // version, tag or id
  long long b = 0; // block count or size
  int dataType = -1;
  bool flag = false; // truncated, or text cut
  bool quoted = false;
  char const* name = nullptr;
  char const* typeName = nullptr;
  std::string bytes; // leaf bytes or text
};

class CRecorder : public IArchiveVisitor {
public:
  std::vector<SEvent> events;

  void BeginObject(sArchiveObject const& o) override {
    SEvent& e = Add(SEvent::kObject, o.offset);
    e.a = o.version;
    e.b = o.blockCount;
    e.name = o.name;
  }
  void BeginBlock(sArchiveBlock const& b) override {
    SEvent& e = Add(SEvent::kBlock, b.offset);
    e.a = b.tag;
    e.b = b.size;
    e.flag = b.truncated;
  }
  void BeginNamed(sArchiveNamed const& part) override { Part(SEvent::kPart, part); }
  void Named(sArchiveNamed const& part) override { Part(SEvent::kNamed, part); }
  void Leaf(sArchiveLeaf const& leaf) override {
    if (leaf.at > 0 && !events.empty() && events.back().kind == SEvent::kLeaf)
      events.back().bytes.append(leaf.bytes); // the next piece of the same leaf
    else
      Add(SEvent::kLeaf, leaf.offset).bytes = leaf.bytes;
  }
  void EndObject(long long end) override { End(end); }
  void EndBlock(long long end) override { End(end); }
  void EndNamed(long long end) override { End(end); }

private:
  SEvent& Add(SEvent::EKind kind, long long offset) {
    SEvent& e = events.emplace_back();
    e.kind = kind;
    e.offset = offset;
    return e;
  }
  void Part(SEvent::EKind kind, sArchiveNamed const& p) {
    SEvent& e = Add(kind, p.offset);
    e.a = p.id;
    e.b = static_cast<long long>(p.size);
    e.dataType = p.dataType;
    e.flag = p.textCut;
    e.quoted = p.quoted;
    e.name = p.name;
    e.typeName = p.typeName;
    e.bytes = p.text;
  }
  void End(long long end) { Add(SEvent::kEnd, end); }
};

py::object MakePart(SEvent const& e) {
  SPart part;
  part.offset = e.offset;
  part.end = e.offset + e.b;
  part.name = e.name;
  part.id = e.a;
  part.dataType = e.dataType;
  if (e.typeName)
    part.typeName = e.typeName;
  part.text = e.bytes;
  part.textCut = e.flag;
  part.quoted = e.quoted;
  return py::cast(std::move(part));
}

py::object Make(SEvent const& e) {
  switch (e.kind) {
  case SEvent::kObject: {
    SObject object;
    object.offset = e.offset;
    object.version = static_cast<int>(e.a);
    object.blockCount = static_cast<int>(e.b);
    if (e.name)
      object.name = e.name;
    return py::cast(std::move(object));
  }
  case SEvent::kBlock: {
    SBlock block;
    block.offset = e.offset;
    block.tag = static_cast<int>(e.a);
    block.size = static_cast<unsigned>(e.b);
    block.truncated = e.flag;
    return py::cast(std::move(block));
  }
  default:
    return MakePart(e);
  }
}

// Where `item`'s children go.
py::list Children(py::handle item) {
  if (py::isinstance<SObject>(item))
    return item.cast<SObject&>().blocks;
  if (py::isinstance<SBlock>(item))
    return item.cast<SBlock&>().items;
  return item.cast<SPart&>().parts;
}

void SetData(py::handle item, std::string const& bytes) {
  if (py::isinstance<SBlock>(item))
    item.cast<SBlock&>().data = py::bytes(bytes);
  else if (py::isinstance<SPart>(item))
    item.cast<SPart&>().data = py::bytes(bytes);
}

void SetEnd(py::handle item, long long end) {
  if (py::isinstance<SObject>(item))
    item.cast<SObject&>().end = end;
  else if (py::isinstance<SBlock>(item))
    item.cast<SBlock&>().end = end;
  else
    item.cast<SPart&>().end = end;
}

// The events as nested Python objects, with an explicit stack: nesting may
// be thousands of levels deep.
py::list Build(std::vector<SEvent> const& events) {
  py::list top;
  std::vector<py::object> open;
  for (SEvent const& e : events) {
    if (e.kind == SEvent::kEnd) {
      SetEnd(open.back(), e.offset);
      open.pop_back();
    } else if (e.kind == SEvent::kLeaf) {
      if (!open.empty())
        SetData(open.back(), e.bytes);
    } else {
      py::object item = Make(e);
      (open.empty() ? top : Children(open.back())).append(item);
      if (e.kind != SEvent::kNamed)
        open.push_back(item);
    }
  }
  return top;
}

py::list Inspect(py::buffer data) {
  py::buffer_info const buffer = data.request();
  CRecorder recorder;
  CArchiveReader reader;
  reader.SetLeafLimit(~0ULL);
  bool complete = false;
  {
    py::gil_scoped_release released;
    complete =
        reader.Read(buffer.ptr, static_cast<std::size_t>(buffer.size * buffer.itemsize), recorder);
  }
  if (!complete)
    throw py::value_error("not a readable archive: " + reader.Error() + " (at byte " +
                          std::to_string(reader.StoppedAt()) + ")");
  return Build(recorder.events);
}

} // namespace

void BindInspect(py::module_& module) {
  py::class_<SObject>(module, "ArchiveObject", "An archived object: a version and tagged blocks.")
      .def_readonly("offset", &SObject::offset)
      .def_readonly("end", &SObject::end)
      .def_readonly("version", &SObject::version)
      .def_readonly("block_count", &SObject::blockCount)
      .def_readonly("name", &SObject::name)
      .def_readonly("blocks", &SObject::blocks)
      .def("__repr__", [](SObject const& o) {
        return "<zrn.ArchiveObject @" + std::to_string(o.offset) + " v" +
               std::to_string(o.version) + ", " + std::to_string(o.blockCount) + " blocks>";
      });
  py::class_<SBlock>(module, "ArchiveBlock", "A tagged block: nested items or raw data.")
      .def_readonly("offset", &SBlock::offset)
      .def_readonly("end", &SBlock::end)
      .def_readonly("tag", &SBlock::tag)
      .def_readonly("size", &SBlock::size)
      .def_readonly("truncated", &SBlock::truncated)
      .def_readonly("items", &SBlock::items)
      .def_readonly("data", &SBlock::data)
      .def("__repr__", [](SBlock const& b) {
        return "<zrn.ArchiveBlock @" + std::to_string(b.offset) + " tag " + std::to_string(b.tag) +
               ", " + std::to_string(b.size) + " bytes>";
      });
  py::class_<SPart>(module, "ArchivePart", "A payload the library writes, recognised by its bytes.")
      .def_readonly("offset", &SPart::offset)
      .def_readonly("end", &SPart::end)
      .def_readonly("name", &SPart::name)
      .def_readonly("id", &SPart::id)
      .def_readonly("data_type", &SPart::dataType)
      .def_readonly("type_name", &SPart::typeName)
      .def_readonly("text", &SPart::text)
      .def_readonly("text_cut", &SPart::textCut)
      .def_readonly("quoted", &SPart::quoted)
      .def_readonly("parts", &SPart::parts)
      .def_readonly("data", &SPart::data)
      .def("__repr__", [](SPart const& p) {
        return "<zrn.ArchivePart " + p.name + " " + std::to_string(p.id) + ">";
      });

  module.def("inspect", &Inspect, py::arg("data"),
             "The objects, blocks and recognised payloads of archive bytes.");
}

} // namespace zrn::python

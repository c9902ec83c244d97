#include <zrn/IO/ArchiveReader.h>
#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>
#include <zrn/IO/TaggedObject.h>
#include <zrn/Object/IBase.h>
#include <zrn/Object/Project.h>
#include <zrn/Property/PropertyCollection.h>
#include <zrn/Property/Variant.h>

#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <typeinfo>

namespace zrn {
namespace {

using test::Bytes;

// The events of a walk as one line: "O@0v2n1" objects, "B@3t1s12" blocks
// ("!" when cut), "D@16:4=07000000" leaf data, "N<name>#id[type]=text"
// named parts, "{" and "}" around what they contain. Checks that every
// Begin has its End.
class CRecorder : public IArchiveVisitor {
public:
  std::string events;
  int depth = 0;

  void BeginObject(sArchiveObject const& o) override {
    events += "O@" + std::to_string(o.offset) + "v" + std::to_string(o.version) + "n" +
              std::to_string(o.blockCount) + (o.name ? std::string("(") + o.name + ")" : "") + "{";
    ++depth;
  }
  void EndObject(long long) override { Close(); }
  void BeginBlock(sArchiveBlock const& b) override {
    events += "B@" + std::to_string(b.offset) + "t" + std::to_string(b.tag) + "s" +
              std::to_string(b.size) + (b.truncated ? "!" : "") + "{";
    ++depth;
  }
  void EndBlock(long long) override { Close(); }
  void Leaf(sArchiveLeaf const& leaf) override {
    if (leaf.at == 0)
      events += "D@" + std::to_string(leaf.offset) + ":" + std::to_string(leaf.size) + "=";
    static constexpr char kHex[] = "0123456789abcdef";
    for (const char c : leaf.bytes) {
      events += kHex[static_cast<unsigned char>(c) >> 4];
      events += kHex[c & 15];
    }
    events += ' ';
  }
  void BeginNamed(sArchiveNamed const& p) override {
    Named(p);
    events.back() = '{';
    ++depth;
  }
  void EndNamed(long long) override { Close(); }
  void Named(sArchiveNamed const& p) override {
    events += std::string("N") + p.name + "#" + std::to_string(p.id);
    if (p.typeName)
      events += std::string("[") + p.typeName + "]";
    if (!p.text.empty() || p.quoted)
      events += "=" + std::string(p.text);
    events += ' ';
  }

private:
  void Close() {
    --depth;
    EXPECT_GE(depth, 0) << "an End without its Begin";
    if (events.back() == ' ')
      events.pop_back();
    events += "} ";
  }
};

Bytes Store(std::function<void(GDbArchiveImpl&)> const& write) {
  GMemStream stream(true, nullptr, 0);
  GDbArchiveImpl ar(&stream);
  write(ar);
  return test::Written(stream);
}

struct sWalk {
  bool complete;
  std::string events;
  long long stoppedAt;
};

sWalk Walk(Bytes const& bytes, EArchiveRoot root = EArchiveRoot::Stream,
           unsigned long long leafLimit = CArchiveReader::kDefaultLeafLimit) {
  CArchiveReader reader;
  reader.SetRoot(root);
  reader.SetLeafLimit(leafLimit);
  CRecorder recorder;
  const bool complete = reader.Read(bytes.data(), bytes.size(), recorder);
  EXPECT_EQ(recorder.depth, 0) << "Begin and End calls do not balance";
  EXPECT_EQ(complete, reader.StoppedAt() < 0);
  EXPECT_EQ(complete, reader.Error().empty());
  EXPECT_LE(reader.StoppedAt(), static_cast<long long>(bytes.size()));
  if (!recorder.events.empty() && recorder.events.back() == ' ')
    recorder.events.pop_back();
  return {complete, recorder.events, reader.StoppedAt()};
}

void const* Key(long long id) { return reinterpret_cast<void const*>(id); }

// Object a (version 2) holds object b (version 1) in its block 1; b holds an int.
Bytes NestedStream() {
  return Store([](GDbArchiveImpl& ar) {
    ar.BeginWriteObject(Key(1), 2);
    ar.BeginWriteBlock(1, Key(1));
    ar.BeginWriteObject(Key(2), 1);
    ar.BeginWriteBlock(5, Key(2));
    ar << 7;
    ar.EndWriteBlock(5, Key(2));
    ar.EndWriteObject(Key(2));
    ar.EndWriteBlock(1, Key(1));
    ar.EndWriteObject(Key(1));
  });
}

TEST(CArchiveReader, ShowsNestedObjectsWithTheirBlocksAndData) {
  const sWalk walk = Walk(NestedStream());
  EXPECT_TRUE(walk.complete);
  EXPECT_EQ(walk.events, "O@0v2n1{B@3t1s12{O@8v1n1{B@11t5s4{D@16:4=07000000}}}}");
}

TEST(CArchiveReader, ReadsObjectsOneAfterAnotherAndPayloadsThatAreNotObjectsAsData) {
  const Bytes bytes = Store([](GDbArchiveImpl& ar) {
    ar.WriteEmptyObject();
    ar.BeginWriteObject(Key(9), 7); // newer than any reader knows: still shown whole
    ar.BeginWriteBlock(200, Key(9));
    ar << std::string("abc");
    ar.EndWriteBlock(200, Key(9));
    ar.BeginWriteBlock(3, Key(9));
    ar.EndWriteBlock(3, Key(9));
    ar.EndWriteObject(Key(9));
  });
  EXPECT_EQ(Walk(bytes).events,
            "O@0v1n0{} O@3v7n2{B@6t200s7{D@11:7=03000000616263} B@18t3s0{D@23:0=}}");
}

TEST(CArchiveReader, ARolledBackObjectShowsAsTheEmptyObjectThatReplacedIt) {
  g_nSerializeErrorMsgBoxMaxCount = 1; // no report boxes
  const Bytes bytes = Store([](GDbArchiveImpl& ar) {
    ar.BeginWriteObject(Key(100), 1);
    ar.BeginWriteBlock(1, Key(100));
    GTaggedObject failing(ar, typeid(int));
    failing.Write(1, [&] {
      failing.Block(1, [&] {
        ar << 1.5 << 2.5;
        throw std::runtime_error("half written");
      });
    });
    ar.EndWriteBlock(1, Key(100));
    ar.BeginWriteBlock(2, Key(100));
    ar << 1.0 << 2.0 << 3.0; // overwrites what the failed object left behind
    ar.EndWriteBlock(2, Key(100));
    ar.EndWriteObject(Key(100));
  });
  g_nSerializeErrorMsgBoxMaxCount = 0;
  const sWalk walk = Walk(bytes, EArchiveRoot::Stream, 4);
  EXPECT_TRUE(walk.complete);
  EXPECT_EQ(walk.events, "O@0v1n2{B@3t1s3{O@8v1n0{}} B@11t2s24{D@16:24=00000000}}");
}

TEST(CArchiveReader, NamesTheProjectRecordOnlyWhenTold) {
  IBaseProject project;
  project.GetUniqueID();
  project.GetUniqueID();
  const Bytes bytes = Store([&](GDbArchiveImpl& ar) { project.Serialize(ar); });
  EXPECT_EQ(Walk(bytes, EArchiveRoot::ProjectRecord).events,
            "O@0v1n1(project record){B@3t1s8{Nunique-ID counter#3}}");
  EXPECT_EQ(Walk(bytes).events, "O@0v1n1{B@3t1s8{D@8:8=0300000000000000}}");
}

// An archivable object of its own class, with properties.
class CPart : public IBase {
public:
  CPropertyCollection properties{this};
  eGBMDataType GetObjectType() override { return static_cast<eGBMDataType>(2000); }
  bool Serialize(GDbArchive& ar) override {
    GTaggedObject frame(ar, typeid(*this));
    return frame.Write(1, [&] { frame.Block(1, [&] { properties.Serialize(ar); }); });
  }
};

class CArchiveReaderProperties : public ::testing::Test {
protected:
  void TearDown() override { CPropertyCollection::ClearPropertyScheme(); }
};

TEST_F(CArchiveReaderProperties, ShowTheSchemeOnceAndEveryValueByName) {
  CPart first;
  first.properties.SetProperty(L"Width", CVariant(7));
  first.properties.SetProperty(L"Name", CVariant(std::string("beam")));
  first.properties.SetProperty(L"Label", CVariant(std::wstring(L"\u00e9t\u00e9")));
  first.properties.SetProperty(L"Ratio", CVariant(0.5));
  first.properties.SetProperty(L"Done", CVariant(true));
  CVariant id;
  id.SetObjectID(42);
  first.properties.SetProperty(L"Ref", id);
  CPart second;
  second.properties.SetProperty(L"Width", CVariant(short(-3)));
  const Bytes bytes = Store([&](GDbArchiveImpl& ar) {
    first.Serialize(ar);
    second.Serialize(ar);
  });
  const sWalk walk = Walk(bytes);
  EXPECT_TRUE(walk.complete);
  const std::string head = "O@0v1n1{B@3t1s";
  ASSERT_EQ(walk.events.substr(0, head.size()), head);
  // The first collection carries the product table and the class's scheme.
  for (char const* expected :
       {"Nproduct table#-1{Nproduct#1=ZRN}", "Nscheme#2000{Nscheme product#-1=ZRN{",
        "Nscheme entry#1025=Width", "Nscheme entry#1030=Ref}}", "Nproperty#1025[int]=7",
        "Nproperty#1026[string]=beam", "Nproperty#1027[wstring]=\xc3\xa9t\xc3\xa9",
        "Nproperty#1028[double]=0.5", "Nproperty#1029[bool]=true", "Nproperty#1030[object id]=42"})
    EXPECT_NE(walk.events.find(expected), std::string::npos) << expected;
  // The second one only its value: its scheme is in the archive already.
  const std::size_t second_at = walk.events.find("O@", 1);
  ASSERT_NE(second_at, std::string::npos);
  EXPECT_EQ(walk.events.substr(second_at).find("scheme"), std::string::npos);
  EXPECT_NE(walk.events.find("Nproperty collection#-1{Nproperty#1025[short]=-3}", second_at),
            std::string::npos);
}

TEST_F(CArchiveReaderProperties, AFlagAndAZeroCountAloneAreData) {
  CPart empty; // nothing to say: due false, no values
  const Bytes bytes = Store([&](GDbArchiveImpl& ar) { empty.Serialize(ar); });
  EXPECT_EQ(Walk(bytes).events, "O@0v1n1{B@3t1s5{D@8:5=0000000000}}");
}

TEST(CArchiveReader, ADeviceGivesWhatItsBytesGive) {
  const Bytes bytes = NestedStream();
  CRecorder fromDevice;
  CRefPtr<GMemStream> stream(test::LoadingStream(bytes));
  CArchiveReader reader;
  EXPECT_TRUE(reader.Read(*stream, fromDevice));
  EXPECT_EQ(fromDevice.events.substr(0, fromDevice.events.size() - 1), Walk(bytes).events);
  EXPECT_EQ(reader.StreamSize(), static_cast<long long>(bytes.size()));
}

TEST(CArchiveReader, EveryCutOfAStreamStopsWithAnOffsetInsideIt) {
  CPart part;
  part.properties.SetProperty(L"Width", CVariant(7));
  long long firstEnd = 0;
  Bytes bytes = Store([&](GDbArchiveImpl& ar) {
    part.Serialize(ar);
    firstEnd = ar.DevicePos();
    ar.BeginWriteObject(Key(50), 3);
    ar.BeginWriteBlock(1, Key(50));
    part.Serialize(ar);
    ar.EndWriteBlock(1, Key(50));
    ar.EndWriteObject(Key(50));
  });
  CPropertyCollection::ClearPropertyScheme();
  ASSERT_TRUE(Walk(bytes).complete);
  for (std::size_t size = 1; size < bytes.size(); ++size) {
    const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    const sWalk walk = Walk(cut);
    // Cut between its two objects, the stream is whole.
    EXPECT_EQ(walk.complete, static_cast<long long>(size) == firstEnd) << "cut at " << size;
  }
  EXPECT_TRUE(Walk(Bytes{}).complete);
}

TEST(CArchiveReader, SurvivesRandomBytes) {
  std::mt19937 random(12345);
  for (int round = 0; round < 2000; ++round) {
    Bytes bytes(random() % 200);
    for (auto& byte : bytes)
      byte = static_cast<std::uint8_t>(random() % 4 == 0 ? random() : random() % 3);
    Walk(bytes);
  }
}

TEST(CArchiveReader, FollowsDeepNestingWithoutRecursionAndStopsAtItsLimit) {
  // 100000 objects, each the one block of the one before.
  constexpr int kLevels = 100000;
  Bytes bytes;
  for (int level = 0; level < kLevels; ++level) {
    const unsigned size = static_cast<unsigned>((kLevels - level - 1) * 8 + 3);
    const Bytes header{1,
                       0,
                       1,
                       1,
                       static_cast<std::uint8_t>(size),
                       static_cast<std::uint8_t>(size >> 8),
                       static_cast<std::uint8_t>(size >> 16),
                       static_cast<std::uint8_t>(size >> 24)};
    bytes.insert(bytes.end(), header.begin(), header.end());
  }
  bytes.insert(bytes.end(), {1, 0, 0});
  CArchiveReader reader;
  IArchiveVisitor ignore;
  reader.SetMaxDepth(1000000);
  EXPECT_TRUE(reader.Read(bytes.data(), bytes.size(), ignore));
  reader.SetMaxDepth(100);
  CRecorder recorder;
  EXPECT_FALSE(reader.Read(bytes.data(), bytes.size(), recorder));
  EXPECT_EQ(recorder.depth, 0);
  EXPECT_NE(reader.Error().find("nesting deeper than 100"), std::string::npos);
}

TEST(CArchiveReader, ReportsALargeLeafInPiecesUpToItsLimit) {
  const Bytes bytes = Store([](GDbArchiveImpl& ar) {
    ar.BeginWriteObject(Key(1), 1);
    ar.BeginWriteBlock(1, Key(1));
    const std::string big(200000, 'x');
    ar.WriteRawData(const_cast<char*>(big.data()), static_cast<int>(big.size()));
    ar.EndWriteBlock(1, Key(1));
    ar.EndWriteObject(Key(1));
  });
  struct CPieces : IArchiveVisitor {
    unsigned long long total = 0;
    int pieces = 0;
    void Leaf(sArchiveLeaf const& leaf) override {
      EXPECT_EQ(leaf.at, total);
      total += leaf.bytes.size();
      ++pieces;
    }
  } pieces;
  CArchiveReader reader;
  reader.SetLeafLimit(~0ULL);
  EXPECT_TRUE(reader.Read(bytes.data(), bytes.size(), pieces));
  EXPECT_EQ(pieces.total, 200000u);
  EXPECT_GT(pieces.pieces, 1);
  CPieces limited;
  reader.SetLeafLimit(10);
  reader.Read(bytes.data(), bytes.size(), limited);
  EXPECT_EQ(limited.total, 10u);
}

} // namespace
} // namespace zrn

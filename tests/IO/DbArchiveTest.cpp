#include <zrn/IO/DataSizeStream.h>
#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/FileIOStream.h>
#include <zrn/IO/MemStream.h>
#include <zrn/IO/TaggedObject.h>

#include "Support/Bytes.h"
#include "Support/DeviceLimits.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <typeinfo>

namespace zrn {
namespace {

using test::Bytes;

// Runs `write` on a fresh storing archive and returns the bytes written.
Bytes Store(std::function<void(GDbArchiveImpl&)> const& write) {
  GMemStream stream(true, nullptr, 0);
  GDbArchiveImpl ar(&stream);
  write(ar);
  return test::Written(stream);
}

// A loading archive over a copy of `bytes`; owns its stream.
class Loader {
public:
  explicit Loader(Bytes const& bytes)
      : m_stream(test::LoadingStream(bytes)), m_ar(m_stream.get()) {}
  GDbArchiveImpl& operator*() { return m_ar; }
  GDbArchiveImpl* operator->() { return &m_ar; }

private:
  CRefPtr<GMemStream> m_stream;
  GDbArchiveImpl m_ar;
};

void const* Key(long long id) { return reinterpret_cast<void const*>(id); }

TEST(GDbArchiveFormat, ScalarsAreLittleEndianAtTheirOwnWidth) {
  EXPECT_EQ(Store([](GDbArchiveImpl& ar) { ar << true << short(-2) << 7 << 1.0; }),
            (Bytes{0x01, 0xFE, 0xFF, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
}

TEST(GDbArchiveFormat, LongTakesEightBytesBothWays) {
  EXPECT_EQ(
      Store([](GDbArchiveImpl& ar) {
        ar << -1L;
        ar << 0xFFFFFFFFUL;
      }),
      (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}));
  Loader in(Bytes(8, 0xFF));
  long value = 0;
  *in >> value;
  EXPECT_EQ(value, -1);
}

TEST(GDbArchiveFormat, AnyByteButZeroReadsAsTrue) {
  Loader bools(Bytes{0, 1, 7});
  bool a = true, b = false, c = false;
  *bools >> a >> b >> c;
  EXPECT_TRUE(!a && b && c);
}

// Host code writes the fixed-width types through the interface; on Linux
// these are long and unsigned long, which did not compile (ambiguous).
TEST(GDbArchiveFormat, SixtyFourBitTypesThroughTheInterface) {
  const Bytes stored = Store([](GDbArchiveImpl& impl) {
    GDbArchive& ar = impl;
    ar << std::int64_t{-2} << std::uint64_t{1} << std::size_t{2} << 3L << 4UL;
  });
  Bytes expected(5 * 8, 0);
  std::fill(expected.begin() + 1, expected.begin() + 8, 0xFF);
  for (int i = 0; i < 5; ++i)
    expected[8 * i] = i == 0 ? 0xFE : static_cast<std::uint8_t>(i);
  EXPECT_EQ(stored, expected);

  Loader in(stored);
  GDbArchive& ar = *in;
  std::int64_t a = 0;
  std::uint64_t b = 0;
  std::size_t c = 0;
  long d = 0;
  unsigned long e = 0;
  ar >> a >> b >> c >> d >> e;
  EXPECT_EQ(a, -2);
  EXPECT_EQ(b, 1u);
  EXPECT_EQ(c, 2u);
  EXPECT_EQ(d, 3);
  EXPECT_EQ(e, 4u);
  long kept = 7;
  ar >> kept; // nothing left: the value stays
  EXPECT_EQ(kept, 7);
}

TEST(GDbArchiveFormat, StringsAreALengthThenTheirUnits) {
  EXPECT_EQ(Store([](GDbArchiveImpl& ar) { ar << std::string() << std::string("abc"); }),
            (Bytes{0, 0, 0, 0, 3, 0, 0, 0, 'a', 'b', 'c'}));
  EXPECT_EQ(Store([](GDbArchiveImpl& ar) { ar << std::wstring(L"ab"); }),
            (Bytes{2, 0, 0, 0, 'a', 0, 'b', 0}));
  // Above U+FFFF: a surrogate pair, counted as two units.
  EXPECT_EQ(Store([](GDbArchiveImpl& ar) { ar << std::wstring(L"\U0001F600"); }),
            (Bytes{2, 0, 0, 0, 0x3D, 0xD8, 0x00, 0xDE}));
}

TEST(GDbArchiveFormat, PlainCharPointersAreWrittenAsStringsNotBools) {
  EXPECT_EQ(Store([](GDbArchiveImpl& ar) { ar << "hi"; }), (Bytes{2, 0, 0, 0, 'h', 'i'}));
}

TEST(GDbArchiveFormat, StringsReadBackUpToTheirFirstNul) {
  const std::wstring wide = L"x\U0001F600y" + std::wstring(1, wchar_t(0xDC00)) + L"z";
  const Bytes stored =
      Store([&](GDbArchiveImpl& ar) { ar << std::string() << std::string("a\0b", 3) << wide; });
  Loader in(stored);
  std::string kept = "x";
  std::string cut;
  std::wstring back;
  *in >> kept >> cut >> back;
  EXPECT_EQ(kept, "x"); // a stored empty string leaves the target alone
  EXPECT_EQ(cut, "a");  // text ends at its first NUL
  EXPECT_EQ(back, wide);
  EXPECT_EQ(in->DevicePos(), static_cast<long long>(stored.size()));
}

TEST(GDbArchiveFormat, AStringLongerThanTheStreamReadsEmpty) {
  Loader in(Bytes{0xE8, 0x03, 0, 0, 'a', 'b', 'c'}); // claims 1,000 bytes
  std::string text = "old";
  *in >> text;
  EXPECT_EQ(text, "");
  EXPECT_EQ(in->DevicePos(), 4);
}

TEST(GDbArchiveFormat, AByteArrayLongerThanTheStreamReadsNothing) {
  Loader bytes(Bytes{0xFF, 0xFF, 0xFF, 0x7F, 1, 2});
  void* data = reinterpret_cast<void*>(1);
  int size = -1;
  bytes->ReadBytes(data, size);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(size, 0);
}

TEST(GDbArchiveFormat, AWideStringLongerThanTheStreamReadsEmpty) {
  Loader wide(Bytes{3, 0, 0, 0, 'a', 0, 'b', 0});
  std::wstring target = L"old";
  *wide >> target;
  EXPECT_EQ(target, L"");
}

TEST(GDbArchiveFormat, ByteArrays) {
  char payload[3] = {9, 8, 7};
  const Bytes stored = Store([&](GDbArchiveImpl& ar) {
    ar.WriteBytes(payload, 3);
    ar.WriteBytes(payload, 0);
    ar.WriteRawData(payload, 2);
  });
  EXPECT_EQ(stored, (Bytes{3, 0, 0, 0, 9, 8, 7, 0, 0, 0, 0, 9, 8}));
  Loader in(stored);
  void* data = nullptr;
  int size = 0;
  in->ReadBytes(data, size);
  ASSERT_EQ(size, 3);
  EXPECT_EQ(static_cast<char*>(data)[2], 7);
  ::operator delete(data);
  in->ReadBytes(data, size);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(size, 0);
}

TEST(GDbArchiveObjects, AnEmptyObjectIsThreeBytesAndTakesAnId) {
  EXPECT_EQ(Store([](GDbArchiveImpl& ar) {
              ar.WriteEmptyObject();
              EXPECT_EQ(ar.CreateNewObjectID(), 2); // the empty object took id 1
            }),
            (Bytes{1, 0, 0}));
}

TEST(GDbArchiveObjects, ASingleBlockObjectPatchesItsSizeAndPopsItsVersion) {
  const Bytes stored = Store([](GDbArchiveImpl& ar) {
    const void* key = Key(ar.CreateNewObjectID());
    ar.BeginWriteObject(key, 1);
    EXPECT_EQ(ar.GetVersion(), 1);
    ar.BeginWriteBlock(1, key);
    ar << 0x0102030405060708LL;
    ar.EndWriteBlock(1, key);
    ar.EndWriteObject(key);
    EXPECT_EQ(ar.DevicePos(), 16);
    EXPECT_EQ(ar.GetVersion(), 0);
  });
  EXPECT_EQ(stored, (Bytes{1, 0, 1, 1, 8, 0, 0, 0, 8, 7, 6, 5, 4, 3, 2, 1}));
}

TEST(GDbArchiveObjects, NestedObjectsPatchTheirOwnSizes) {
  const Bytes stored = Store([](GDbArchiveImpl& ar) {
    ar.BeginWriteObject(Key(1), 2);
    ar.BeginWriteBlock(1, Key(1));
    ar.BeginWriteObject(Key(2), 1);
    ar.BeginWriteBlock(5, Key(2));
    ar << 0x11223344;
    ar.EndWriteBlock(5, Key(2));
    ar.EndWriteObject(Key(2));
    ar.EndWriteBlock(1, Key(1));
    ar.EndWriteObject(Key(1));
    // Calls for keys that are not being written are ignored.
    ar.BeginWriteBlock(3, Key(9));
    ar.EndWriteObject(Key(9));
  });
  EXPECT_EQ(stored,
            (Bytes{2, 0, 1, 1, 12, 0, 0, 0, 1, 0, 1, 5, 4, 0, 0, 0, 0x44, 0x33, 0x22, 0x11}));
}

// An object of version 1 with blocks 2 (a string) and 1 (an int), then 42.
Bytes TwoBlockObjectThen42() {
  return Store([](GDbArchiveImpl& ar) {
    const void* key = Key(ar.CreateNewObjectID());
    ar.BeginWriteObject(key, 1);
    ar.BeginWriteBlock(2, key);
    ar << std::string("unknown to old readers");
    ar.EndWriteBlock(2, key);
    ar.BeginWriteBlock(1, key);
    ar << 7;
    ar.EndWriteBlock(1, key);
    ar.EndWriteObject(key);
    ar << 42;
  });
}

TEST(GDbArchiveObjects, ReadersSkipBlocksTheyDoNotKnow) {
  Loader in(TwoBlockObjectThen42());
  unsigned char count = 0;
  unsigned short version = 0;
  in->ReadObject(count, version);
  ASSERT_EQ(count, 2);
  int known = 0;
  for (int i = 0; i < count; ++i) {
    unsigned char tag;
    unsigned int size;
    in->ReadBlock(tag, size);
    if (tag == 1)
      *in >> known;
    else
      in->SeekPos(static_cast<int>(size), GDbArchive::SEEKFROM_CURRENT);
  }
  in->EndReadObject();
  EXPECT_EQ(known, 7);
  EXPECT_EQ(in->GetVersion(), 0);
}

TEST(GDbArchiveObjects, ReadersOfAnOlderVersionSkipTheWholeObject) {
  Loader skipping(TwoBlockObjectThen42());
  unsigned char count = 0;
  unsigned short version = 0;
  skipping->ReadObject(count, version);
  ASSERT_GT(version, 0);
  skipping->EndReadObject();
  skipping->SeekPos(0, GDbArchive::SEEKFROM_BEGIN);
  skipping->SkipObject();
  EXPECT_EQ(skipping->GetVersion(), 0); // what it pushed, it popped
  int after = 0;
  *skipping >> after;
  EXPECT_EQ(after, 42);
}

TEST(GDbArchiveObjects, AWriteRollbackCutsTheObjectAndSeeksMoveThePosition) {
  const Bytes stored = Store([](GDbArchiveImpl& ar) {
    ar << 0xAAAAAAAA;
    const void* key = Key(ar.CreateNewObjectID());
    ar.BeginWriteObject(key, 3);
    ar.BeginWriteBlock(1, key);
    ar << 1.5;
    ar.RollbackWriteObject(4); // the object failed half-way
    EXPECT_EQ(ar.DevicePos(), 7);
    EXPECT_EQ(ar.GetVersion(), 0); // and is forgotten
    ar.SeekPos(4, GDbArchive::SEEKFROM_CURRENT);
    EXPECT_EQ(ar.DevicePos(), 11);
    ar.SeekPos(4, GDbArchive::SEEKFROM_BEGIN);
    EXPECT_EQ(ar.DevicePos(), 4);
    ar.SeekPos(7, GDbArchive::SEEKFROM_BEGIN);
  });
  EXPECT_EQ(stored, (Bytes{0xAA, 0xAA, 0xAA, 0xAA, 1, 0, 0}));
}

TEST(GDbArchiveObjects, AReadRollbackResumesAfterTheObject) {
  Loader in(TwoBlockObjectThen42());
  unsigned char count;
  unsigned short version;
  in->ReadObject(count, version);
  int ignored;
  *in >> ignored; // reading went wrong inside the object
  in->RollbackReadObject(0);
  EXPECT_EQ(in->GetVersion(), 0);
  *in >> ignored;
  EXPECT_EQ(ignored, 42);
}

TEST(GDbArchive, PropertyTablesAreCreatedOnRequestAndCopied) {
  GDbArchiveImpl ar;
  EXPECT_EQ(ar.GetMapPropertyID(GBM_STRING, false), nullptr);
  auto* map = ar.GetMapPropertyID(GBM_STRING, true);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(ar.GetMapPropertyID(GBM_STRING, false), map);
  ar.GetArchivedPropertyScheme().insert(GBM_COLOR);
  GDbArchiveImpl copy(ar);
  EXPECT_EQ(copy.GetArchivedPropertyScheme().count(GBM_COLOR), 1u);
}

TEST(GDbArchive, VersionsBeforeAnyObject) {
  GDbArchiveImpl ar;
  EXPECT_EQ(ar.CurrentVersion(), 0);
  EXPECT_EQ(ar.GeometryVersion(), 16);
  EXPECT_EQ(GDbArchive::LatestVersion(), 16);
}

TEST(GDbArchive, WithoutADeviceNothingIsReadOrWritten) {
  GDbArchiveImpl ar;
  int value = 5;
  ar << 1;
  ar >> value;
  ar.SkipObject();
  EXPECT_EQ(value, 5);
  EXPECT_EQ(ar.DevicePos(), 0);
}

TEST(GDbArchive, SameBytesThroughEveryDevice) {
  auto write = [](GDbArchiveImpl& ar) {
    for (int i = 0; i < 50000; ++i) {
      const void* key = Key(ar.CreateNewObjectID());
      ar.BeginWriteObject(key, 1);
      ar.BeginWriteBlock(1, key);
      ar << static_cast<long long>(i) << i * 0.5 << std::to_string(i)
         << std::wstring(L"w\U0001F600");
      ar.EndWriteBlock(1, key);
      ar.EndWriteObject(key);
    }
  };
  const Bytes memory = Store(write);

  GDataSizeStream counter;
  GDbArchiveImpl counting(&counter);
  write(counting);
  EXPECT_EQ(counter.pos(), static_cast<long long>(memory.size()));

  const auto path = std::filesystem::path(::testing::TempDir()) / "zrn_archive_round_trip";
  {
    GFileIOStream file(true, path.wstring(), false);
    GDbArchiveImpl ar(&file);
    write(ar);
  }
  std::ifstream in(path, std::ios::binary);
  EXPECT_EQ(Bytes(std::istreambuf_iterator<char>(in), {}), memory);

  GFileIOStream file(false, path.wstring(), false);
  GDbArchiveImpl reader(&file);
  for (int i = 0; i < 49999; ++i)
    reader.SkipObject();
  unsigned char count, tag;
  unsigned short version;
  unsigned int size;
  std::string text;
  reader.ReadObject(count, version);
  reader.ReadBlock(tag, size);
  reader.SeekPos(16, GDbArchive::SEEKFROM_CURRENT);
  reader >> text;
  EXPECT_EQ(text, "49999");
  std::filesystem::remove(path);
}

// A host device that refuses one write and would take the next ones again.
class FlakyDevice : public GMemStream {
public:
  FlakyDevice() : GMemStream(true, nullptr, 0) {}
  bool Write(void* data, unsigned int size) override {
    if (size == 8 && !m_bRefused) {
      m_bRefused = true;
      return false;
    }
    return GMemStream::Write(data, size);
  }

private:
  bool m_bRefused = false;
};

// Guards against an archive that carries on after a refused write and
// reports every write as taken.
TEST(GDbArchive, ARefusedWriteEndsTheOutput) {
  FlakyDevice device;
  GDbArchiveImpl ar(&device);
  const void* key = Key(ar.CreateNewObjectID());
  ar.BeginWriteObject(key, 1);
  ar.BeginWriteBlock(1, key);
  ar << 5;
  EXPECT_TRUE(ar.IsAllWriteDataOK());
  ar << 6LL; // refused
  ar << 7;
  ar.EndWriteBlock(1, key);
  ar.EndWriteObject(key);
  EXPECT_FALSE(ar.IsAllWriteDataOK());
  // What went out is a clean prefix: no later value, no patched size.
  EXPECT_EQ(test::Written(device), (Bytes{1, 0, 0, 1, 0, 0, 0, 0, 5, 0, 0, 0}));

  // Over the library's own memory stream (read and written directly), a
  // stream that hits its limit ends the output the same way.
  GMemStream stream; // an empty buffer, so that the limit rules all growth
  stream.SetOpenMode(true);
  DeviceTestAccess::SetMaxSize(stream, 20);
  GDbArchiveImpl direct(&stream);
  direct << std::string("0123456789") << std::wstring(L"ab") << 1;
  EXPECT_FALSE(direct.IsAllWriteDataOK());
  EXPECT_EQ(stream.GetDataSize(), 18u); // the string and the length of the wide one
  ErrorCode::Clear();
}

// A loading device that is not exactly the memory stream, so that the archive
// reads it through the device's virtual operations.
class OtherDevice : public GMemStream {
public:
  explicit OtherDevice(Bytes const& bytes) {
    SetData(reinterpret_cast<char*>(const_cast<std::uint8_t*>(bytes.data())),
            static_cast<int>(bytes.size()));
  }
};

TEST(GDbArchive, PayloadsReadAlikeFromMemoryAndFromAnotherDevice) {
  char payload[3] = {9, 8, 7};
  const Bytes stored = Store([&](GDbArchiveImpl& ar) {
    ar << std::string("a\0b", 3) << std::wstring(L"x\U0001F600");
    ar.WriteBytes(payload, 3);
    ar << 0x7FFFFFFF << 'z'; // a length far beyond the end
  });
  OtherDevice device(stored);
  Loader memory(stored);
  GDbArchiveImpl other(&device);
  for (GDbArchiveImpl* ar : {&*memory, &other}) {
    std::string text;
    std::wstring wide;
    void* data = nullptr;
    int size = 0;
    *ar >> text >> wide;
    EXPECT_EQ(text, "a");
    EXPECT_EQ(wide, L"x\U0001F600");
    ar->ReadBytes(data, size);
    ASSERT_EQ(size, 3);
    EXPECT_EQ(std::memcmp(data, payload, 3), 0);
    ::operator delete(data);
    ar->ReadBytes(data, size);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(ar->DevicePos(), static_cast<long long>(stored.size()) - 1);
  }
}

// A host class framed by GTaggedObject: a name and a count, each in a block.
// Fails on demand inside its count block, to exercise the roll-back.
struct Framed {
  std::string name;
  int count = 0;
  bool fail = false;
  void Serialize(GDbArchive& ar) {
    GTaggedObject object(ar, typeid(*this));
    if (!ar.IsLoading()) {
      object.Write(2, [&] {
        object.Block(1, [&] { ar << name; });
        object.Block(2, [&] { fail ? throw std::runtime_error("full") : ar << count; });
      });
      return;
    }
    object.Read(2, [&](unsigned char tag) {
      if (tag == 1)
        ar >> name;
      if (tag == 2)
        fail ? throw std::runtime_error("gone") : ar >> count;
      return tag == 1 || tag == 2;
    });
  }
};

// The error boxes of an archive, and the process-wide box counter restored.
class TaggedObjectTest : public ::testing::Test {
protected:
  void TearDown() override { g_nSerializeErrorMsgBoxMaxCount = m_previous; }

private:
  int m_previous = g_nSerializeErrorMsgBoxMaxCount;
};

TEST_F(TaggedObjectTest, WritesOneBlockPerFieldAndReadsThemBack) {
  Framed part{"ab", 7};
  const Bytes stored = Store([&](GDbArchiveImpl& ar) { part.Serialize(ar); });
  EXPECT_EQ(stored, (Bytes{2, 0, 2, 1, 6, 0, 0, 0, 2, 0, 0, 0, 'a', 'b', //
                           2, 4, 0, 0, 0, 7, 0, 0, 0}));
  Framed back;
  Loader in(stored);
  back.Serialize(*in);
  EXPECT_EQ(back.name, "ab");
  EXPECT_EQ(back.count, 7);
  EXPECT_EQ(in->DevicePos(), static_cast<long long>(stored.size()));
  EXPECT_EQ(in->GetVersion(), 0);
}

TEST_F(TaggedObjectTest, ReaderSkipsUnknownBlocksAndNewerObjects) {
  // Block 9 (unknown) before block 2.
  Loader in(Bytes{2, 0, 2, 9, 3, 0, 0, 0, 0xEE, 0xEE, 0xEE, 2, 4, 0, 0, 0, 5, 0, 0, 0});
  Framed back;
  back.Serialize(*in);
  EXPECT_EQ(back.count, 5);
  EXPECT_EQ(in->DevicePos(), 20);

  // Version 3 is newer than the reader's 2: nothing is read, all is skipped.
  Loader newer(Bytes{3, 0, 1, 2, 4, 0, 0, 0, 5, 0, 0, 0, 0x2A});
  Framed untouched;
  untouched.Serialize(*newer);
  EXPECT_EQ(untouched.count, 0);
  EXPECT_EQ(newer->GetVersion(), 0);
  unsigned char after = 0;
  *newer >> after;
  EXPECT_EQ(after, 0x2A);
}

TEST_F(TaggedObjectTest, FailedObjectIsRolledBackInsideItsEnclosingObject) {
  g_nSerializeErrorMsgBoxMaxCount = -10;
  Framed failing{"ab", 7, true};
  const Bytes stored = Store([&](GDbArchiveImpl& ar) {
    const void* key = Key(ar.CreateNewObjectID());
    ar.BeginWriteObject(key, 1);
    ar.BeginWriteBlock(1, key);
    failing.Serialize(ar);
    ar << 77;
    ar.EndWriteBlock(1, key);
    ar.EndWriteObject(key);
  });
  // The failed object is the empty object 01 00 00; the outer block's size
  // counts it and the int after it.
  EXPECT_EQ(stored, (Bytes{1, 0, 1, 1, 7, 0, 0, 0, 1, 0, 0, 77, 0, 0, 0}));

  Framed good{"ab", 7};
  const Bytes whole = Store([&](GDbArchiveImpl& ar) {
    good.Serialize(ar);
    ar << 77;
  });
  Loader in(whole);
  Framed reader;
  reader.fail = true;
  reader.Serialize(*in);
  int marker = 0;
  *in >> marker;
  EXPECT_EQ(marker, 77); // the failed read skipped the object whole
  EXPECT_EQ(reader.name, "ab");
  EXPECT_EQ(in->GetVersion(), 0);
}

} // namespace
} // namespace zrn

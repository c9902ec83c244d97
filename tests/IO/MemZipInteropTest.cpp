// Archives exchanged with other zip tools: Info-ZIP's zip and unzip, and
// Python's zipfile module. The tools must be installed (scripts/install-deps.sh
// installs them).
#include <zrn/IO/MemZip.h>

#include "Support/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace zrn {
namespace {

namespace fs = std::filesystem;

struct Entry {
  std::string name, content;
};

// Compressible text, incompressible bytes, names with folders, an empty
// entry and a 10 MiB one.
std::vector<Entry> SampleEntries() {
  std::string text;
  for (int line = 0; text.size() < 50000; ++line)
    text += "line " + std::to_string(line) + ": the quick brown fox\n";
  std::string noise(30000, '\0'), large(10u << 20, '\0');
  std::uint32_t state = 12345;
  for (std::string* bytes : {&noise, &large})
    for (char& byte : *bytes) {
      state = state * 1664525u + 1013904223u;
      byte = static_cast<char>(bytes == &noise ? state >> 24 : (state >> 28) + 'a');
    }
  return {{"readme.txt", text},
          {"data/noise.bin", noise},
          {"data/deeper/empty.txt", ""},
          {"large/ten-mib.txt", large}};
}

std::string ReadFile(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

class CMemZipInteropTest : public ::testing::Test {
protected:
  CMemZipInteropTest() {
    fs::create_directories(m_dir / "tree");
    for (Entry const& entry : m_entries) {
      fs::create_directories((m_dir / "tree" / entry.name).parent_path());
      std::ofstream(m_dir / "tree" / entry.name, std::ios::binary) << entry.content;
    }
  }

  // Runs a shell command in the test's folder; true when it exits with 0.
  bool Run(std::string const& command) const {
    return std::system(("cd '" + m_dir.string() + "' && " + command).c_str()) == 0;
  }

  // Every sample entry comes out of the archive file `name` unchanged.
  void ExpectSampleEntriesIn(std::string const& name) const {
    const std::string archive = ReadFile(m_dir / name);
    CMemZip zip(archive.data(), archive.size());
    ASSERT_TRUE(zip) << name;
    for (Entry const& entry : m_entries) {
      unsigned long long size = 1;
      std::unique_ptr<char[]> bytes(zip.Extract(entry.name.c_str(), size));
      EXPECT_EQ(bytes ? std::string(bytes.get(), size) : std::string(), entry.content)
          << name << ": " << entry.name;
      EXPECT_EQ(size, entry.content.size());
    }
  }

  const std::vector<Entry> m_entries = SampleEntries();
  zrn::test::TempFolder m_folder; // a folder of its own, removed afterwards
  const fs::path m_dir = m_folder.Path();
};

// Checks an archive against the folder "tree" with zipfile; also prints the
// compression methods seen, one letter per entry (S stored, D deflated).
constexpr char kPythonCheck[] = R"(
import os, sys, zipfile
methods = ''
with zipfile.ZipFile(sys.argv[1]) as archive:
    assert archive.testzip() is None
    for info in archive.infolist():
        with open(os.path.join('tree', info.filename), 'rb') as f:
            assert archive.read(info) == f.read(), info.filename
        methods += {zipfile.ZIP_STORED: 'S', zipfile.ZIP_DEFLATED: 'D'}[info.compress_type]
print(methods)
)";

TEST_F(CMemZipInteropTest, OtherToolsReadWhatItWrites) {
  CMemZip zip;
  for (Entry const& entry : m_entries)
    ASSERT_TRUE(zip.Add(entry.name.c_str(), entry.content.data(), entry.content.size()));
  ASSERT_TRUE(zip.FlushToFile((m_dir / "ours.zip").c_str()));

  EXPECT_TRUE(Run("unzip -tqq ours.zip"));
  EXPECT_TRUE(Run("unzip -qq ours.zip -d unpacked && diff -r tree unpacked"));
  std::ofstream(m_dir / "check.py") << kPythonCheck;
  ASSERT_TRUE(Run("python3 check.py ours.zip > methods.txt"));
  const std::string methods = ReadFile(m_dir / "methods.txt");
  EXPECT_NE(methods.find('S'), std::string::npos) << methods; // the noise stays stored
  EXPECT_NE(methods.find('D'), std::string::npos) << methods;
}

TEST_F(CMemZipInteropTest, ItReadsWhatOtherToolsWrite) {
  ASSERT_TRUE(Run("cd tree && zip -qr -0 ../stored.zip . && zip -qr -9 ../deflated.zip ."));
  ExpectSampleEntriesIn("stored.zip");
  ExpectSampleEntriesIn("deflated.zip");

  std::ofstream(m_dir / "write.py") << R"(
import os, sys, zipfile
for name, method in (('py-stored.zip', zipfile.ZIP_STORED), ('py-deflated.zip', zipfile.ZIP_DEFLATED)):
    with zipfile.ZipFile(name, 'w', method) as archive:
        for folder, _, files in os.walk('tree'):
            for file in files:
                path = os.path.join(folder, file)
                archive.write(path, os.path.relpath(path, 'tree'))
)";
  ASSERT_TRUE(Run("python3 write.py"));
  ExpectSampleEntriesIn("py-stored.zip");
  ExpectSampleEntriesIn("py-deflated.zip");
}

} // namespace
} // namespace zrn

// Runs the example programs as a user runs them and checks what they print
// and leave behind.
#include "Support/TempFolder.h"

#include <zrn/IO/MemZip.h>

#include <gtest/gtest.h>
#include <libpq-fe.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using zrn::test::TempFolder;

std::string Quote(std::string const& text) {
  std::string quoted = "'";
  for (char c : text)
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::string ReadFile(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), {});
}

struct Outcome {
  int exitCode = -1;
  std::string out, err;
};

// Runs `program` with `arguments` (already quoted) in the folder `cwd`.
Outcome RunProgram(fs::path const& cwd, char const* program, std::string const& arguments) {
  std::string const command = "cd " + Quote(cwd.string()) + " && " + Quote(program) + " " +
                              arguments + " >" + Quote((cwd / ".out").string()) + " 2>" +
                              Quote((cwd / ".err").string());
  int const status = std::system(command.c_str());
  Outcome outcome;
  // The shell's status word: the exit code sits in the second byte when the
  // program ended by itself (low seven bits zero).
  outcome.exitCode = (status & 0x7f) == 0 ? (status >> 8) & 0xff : -1;
  outcome.out = ReadFile(cwd / ".out");
  outcome.err = ReadFile(cwd / ".err");
  fs::remove(cwd / ".out");
  fs::remove(cwd / ".err");
  return outcome;
}

std::set<std::string> FilesIn(fs::path const& folder) {
  std::set<std::string> names;
  for (auto const& entry : fs::directory_iterator(folder))
    names.insert(entry.path().filename().string());
  return names;
}

std::string Unzip(fs::path const& zipPath, char const* entry) {
  std::string const bytes = ReadFile(zipPath);
  zrn::CMemZip zip(bytes.data(), bytes.size());
  unsigned long long size = 0;
  std::unique_ptr<char[]> content(zip.Extract(entry, size));
  return content ? std::string(content.get(), size) : std::string();
}

std::size_t Count(std::string const& text, std::string const& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

TEST(Tour, RunsInItsFolderAndBundlesItsFiles) {
  TempFolder folder;
  Outcome const run = RunProgram(folder.Path(), ZRN_TOUR, "");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_NE(run.out.find("loaded part 'bracket"), std::string::npos);
  EXPECT_NE(run.out.find("plate width set to 120, regenerating:"), std::string::npos);
  EXPECT_NE(run.out.find("bundled into tour.log.zip"), std::string::npos);
  EXPECT_TRUE(fs::exists(folder.Path() / "tour.log.zip"));
}

class SampleHost : public testing::Test {
protected:
  TempFolder m_cwd;  // the folder the program runs in: it must stay empty
  TempFolder m_base; // holds the output folder
  fs::path const m_out = m_base.Path() / "out";

  Outcome RunHost(std::string const& arguments) {
    return RunProgram(m_cwd.Path(), ZRN_SAMPLE_HOST,
                      "--out " + Quote(m_out.string()) + " " + arguments);
  }
};

TEST_F(SampleHost, TellsEachStepAndLeavesItsOutputsInTheOutputFolder) {
  Outcome const run = RunHost("");
  ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
  for (char const* line :
       {"Built a steel frame of 6 bays: 33 entities", "First regeneration computed 31 objects",
        "model.db: 33 rows written", "Reloaded the model into a fresh project: 33 entities",
        "Changed bay_width from 6 m to 7.5 m.", "Regenerated: 19 objects ran, 19 changed",
        "Update order: #2 parameters, #3 bay", "Regeneration order: 1. #6 beam, 2. #7 brace",
        "Drew the dependency graph into model.dot: 32 of 32 objects", "Saved the changes to",
        "model.db: 20 rows written",
        "every value is what regeneration computed (span 45 m, steel 6480 kg)", "Profile Result",
        "Dumping Process Memory", "Bundled into"})
    EXPECT_NE(run.out.find(line), std::string::npos) << "missing: " << line << "\n" << run.out;
  EXPECT_TRUE(FilesIn(m_cwd.Path()).empty());
  std::set<std::string> const files = FilesIn(m_out);
  for (char const* name :
       {"model.db", "model.dot", "report.txt", "sample_host.log", "sample_host.zip"})
    EXPECT_TRUE(files.count(name)) << name;
}

TEST_F(SampleHost, DrawsTheGraphWithTheLastPassNumberedInRunOrder) {
  ASSERT_EQ(RunHost("").exitCode, 0);
  std::string const dot = ReadFile(m_out / "model.dot");
  ASSERT_EQ(dot.rfind("// ", 0), 0u);
  EXPECT_EQ(Count(dot, "[label=\"#"), 32u);
  EXPECT_EQ(Count(dot, "\", style=filled, fillcolor=\"#f6c86b\""), 19u);
  for (int place = 1; place <= 19; ++place) // each place once, none skipped
    EXPECT_EQ(Count(dot, "\\nrun " + std::to_string(place) + "\""), 1u) << place;
  EXPECT_NE(dot.find(R"(n2 [label="#2 parameters\nchanged", style=filled)"), std::string::npos);
  EXPECT_NE(dot.find(R"(n4 [label="#4 column"];)"), std::string::npos); // did not run
  EXPECT_NE(dot.find("n2 -> n3;"), std::string::npos);   // the parameters drive the first bay
  EXPECT_NE(dot.find("n3 -> n8;"), std::string::npos);   // which places the second
  EXPECT_NE(dot.find("n28 -> n33;"), std::string::npos); // the last bay gives the totals
  EXPECT_EQ(dot.find("n3 -> n2;"), std::string::npos);
  // The bays run after their members and the bay before them.
  EXPECT_NE(dot.find(R"(#8 bay\nrun 14")"), std::string::npos);
}

TEST_F(SampleHost, BundlesTheStoreAndTheReportsIntoOneZip) {
  ASSERT_EQ(RunHost("").exitCode, 0);
  fs::path const zip = m_out / "sample_host.zip";
  EXPECT_EQ(Unzip(zip, "model.db").rfind(std::string("SQLite format 3\0", 16), 0), 0u);
  EXPECT_EQ(Unzip(zip, "model.db"), ReadFile(m_out / "model.db"));
  EXPECT_NE(Unzip(zip, "sample_host.log").find("Changed bay_width"), std::string::npos);
  EXPECT_NE(Unzip(zip, "report.txt").find("regenerate"), std::string::npos);
  EXPECT_EQ(Unzip(zip, "model.dot"), ReadFile(m_out / "model.dot"));
}

TEST_F(SampleHost, ScalesUpAndSavesOnlyWhatRegenerationChanged) {
  Outcome const run = RunHost("--entities 20000");
  ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
  // 4000 bays of 5 entities, the parameters, the totals and the project.
  EXPECT_NE(run.out.find("4000 bays: 20003 entities"), std::string::npos) << run.out;
  // The changed width moves every bay, beam and brace, and the totals.
  EXPECT_NE(run.out.find("12001 objects ran, 12001 changed"), std::string::npos);
  EXPECT_NE(run.out.find("model.db: 12002 rows written"), std::string::npos);
  EXPECT_NE(run.out.find("checked 12002 objects: every value is what regeneration computed"),
            std::string::npos);
  EXPECT_NE(run.out.find("... and 11961 more"), std::string::npos);
  EXPECT_NE(run.out.find("120 of 20002 objects"), std::string::npos);
}

TEST_F(SampleHost, KeepsTheStoreWhereDbSaysAndReplacesOnlyAStore) {
  fs::path const db = m_base.Path() / "elsewhere.db";
  for (int round = 0; round < 2; ++round) { // the second run starts a new store
    Outcome const run = RunHost("--db " + Quote(db.string()));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("elsewhere.db: 33 rows written"), std::string::npos) << run.out;
  }
  EXPECT_FALSE(fs::exists(m_out / "model.db"));
  EXPECT_FALSE(Unzip(m_out / "sample_host.zip", "elsewhere.db").empty());

  fs::path const notes = m_base.Path() / "notes.txt";
  std::ofstream(notes) << "not a store";
  Outcome const refused = RunHost("--db " + Quote(notes.string()));
  EXPECT_EQ(refused.exitCode, 2);
  EXPECT_NE(refused.err.find("is not an SQLite database"), std::string::npos) << refused.err;
  EXPECT_EQ(ReadFile(notes), "not a store");
}

// With a postgresql:// URL the same run goes through the server store; run
// twice, the second run's new project replaces the first one's rows there.
TEST_F(SampleHost, RunsAgainstAServerStoreAndKeepsItsPasswordOutOfSight) {
  char const* url = std::getenv("ZRN_TEST_PG_URL");
  if (!url || !*url)
    GTEST_SKIP() << "no PostgreSQL server for the tests: ZRN_TEST_PG_URL is not set";
  PGconn* admin = PQconnectdb(url);
  PQclear(PQexec(admin, "CREATE SCHEMA IF NOT EXISTS sample_host"));
  PQfinish(admin);
  std::string const where = std::string(url) +
                            (std::string(url).find('?') == std::string::npos ? "?" : "&") +
                            "options=-csearch_path%3Dsample_host";
  std::string const password = where.substr(where.find(':', where.find("://") + 3) + 1,
                                            where.find('@') - where.find(':', where.find("://") + 3) - 1);
  for (int round = 0; round < 2; ++round) {
    Outcome const run = RunHost("--db " + Quote(where));
    ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
    EXPECT_NE(run.out.find(": 33 rows written."), std::string::npos) << run.out;
    EXPECT_NE(run.out.find(": 20 rows written."), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("every value is what regeneration computed"), std::string::npos);
    EXPECT_EQ(run.out.find(password), std::string::npos) << "the password is shown";
  }
  EXPECT_FALSE(fs::exists(m_out / "model.db"));
}

TEST_F(SampleHost, RefusesBadArgumentsWithExitCodeTwo) {
  struct Case {
    char const* arguments;
    char const* says;
  };
  for (Case const& bad : {Case{"--entities abc", "--entities needs a whole number"},
                          Case{"--entities 6", "from 7 to"}, Case{"--entities -5", "not '-5'"},
                          Case{"--entities 12x", "not '12x'"},
                          Case{"--entities 99999999999999999999", "--entities needs"},
                          Case{"--entities", "--entities needs a value"},
                          Case{"--entities=", "--entities needs a value"},
                          Case{"--colour red", "unknown argument '--colour'"},
                          Case{"extra", "unknown argument 'extra'"}}) {
    Outcome const run = RunHost(bad.arguments);
    EXPECT_EQ(run.exitCode, 2) << bad.arguments;
    EXPECT_NE(run.err.find(bad.says), std::string::npos) << bad.arguments << ": " << run.err;
    EXPECT_TRUE(run.out.empty()) << bad.arguments;
  }
  EXPECT_FALSE(fs::exists(m_out)); // refused before anything was written
}

TEST_F(SampleHost, HelpPrintsTheUsageAndDoesNothing) {
  Outcome const run = RunHost("--help");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out.rfind("Usage: sample_host [--out DIR] [--db PATH] [--entities N]", 0), 0u);
  EXPECT_FALSE(fs::exists(m_out));
}

} // namespace

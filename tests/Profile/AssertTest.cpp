#include <zrn/Profile/Assert.h>
#include <zrn/System/CoreSystem.h>
#include <zrn/System/MessageBox.h>

#include "Support/DebugOutputCapture.h"
#include "Support/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

namespace zrn {
namespace {

// Records the message boxes shown for the lifetime of the object.
class MessageBoxCapture {
public:
  struct Box {
    std::string caption;
    std::string text;
    unsigned style;
  };
  MessageBoxCapture()
      : m_previous(SetMessageBoxHandler(
            [this](std::string_view caption, std::string_view text, unsigned style) {
              m_boxes.push_back({std::string(caption), std::string(text), style});
              return int{MESSAGE_BOX_RESULT_OK};
            })) {}
  ~MessageBoxCapture() { SetMessageBoxHandler(std::move(m_previous)); }
  std::vector<Box> const& Boxes() const { return m_boxes; }

private:
  std::vector<Box> m_boxes;
  MessageBoxHandler m_previous;
};

const std::string kContext = "Failed:a > b\nFile:\nf(12)\na=3\nb=5\n";

Assert& WithContext(Assert& a) {
  return a.print_context("a > b", "f", 12).print_current_val(3, "a").print_current_val(5, "b");
}

std::filesystem::path CrashReportPath() {
  return std::filesystem::path(GCoreSystem::GetExeFilePath()).string() + ".dmp";
}

TEST(Assert, ReportTextAndWarn) {
  test::DebugOutputCapture output;
  Assert a;
  WithContext(a).warn("M");
  Assert b;
  WithContext(b).warn(nullptr);
  Assert c;
  c.print_current_val(0.5, "x").print_current_val("text", "s").print_current_val(1e-7, "y");
  c.level(static_cast<Assert::ErrorLevel>(7), "");
  EXPECT_EQ(output.Texts(),
            (std::vector<std::string>{kContext + "M", kContext, "x=0.5\ns=text\ny=1e-07\n"}));
}

TEST(Assert, StreamIsGoodAgainAfterALevelCall) {
  test::DebugOutputCapture output;
  Assert a;
  a.print_current_val(static_cast<char const*>(nullptr), "p"); // sets the stream's bad bit
  a.warn("lost");
  a.warn("kept");
  ASSERT_EQ(output.Texts().size(), 2u);
  EXPECT_EQ(output.Texts()[1], "p=kept");
}

TEST(Assert, DebugShowsTheMessageBoxAndReturns) {
  test::DebugOutputCapture output;
  MessageBoxCapture boxes;
  Assert a;
  WithContext(a).debug("M");
  ASSERT_EQ(boxes.Boxes().size(), 1u);
  EXPECT_EQ(boxes.Boxes()[0].caption, "SMART_ASSERT triggered!");
  EXPECT_EQ(boxes.Boxes()[0].text, kContext + "M");
  EXPECT_EQ(boxes.Boxes()[0].style, 16u);
  EXPECT_EQ(output.Texts(), std::vector<std::string>{kContext + "M"});

  Assert warn;
  warn.level(Assert::LEVEL_WARN, "w");
  EXPECT_EQ(boxes.Boxes().size(), 1u);
}

TEST(Assert, ErrorWritesACrashReportAndThrows) {
  const auto path = CrashReportPath();
  test::DebugOutputCapture output;
  try {
    Assert a;
    WithContext(a).error("M");
    FAIL() << "no exception";
  } catch (ExceptionWithMinidump const& e) {
    EXPECT_EQ(e.GetDumpFilePath(), path.string());
    EXPECT_EQ(std::string(e.what()),
              "minidump file path:\n" + path.string() + "\n" + kContext + "M");
    const ExceptionWithMinidump copy(e);
    EXPECT_STREQ(copy.what(), e.what());
  }
  std::ifstream in(path);
  const std::string report((std::istreambuf_iterator<char>(in)), {});
  std::filesystem::remove(path);
  EXPECT_NE(report.find(kContext + "M"), std::string::npos);
  const auto trace = report.find("Stack trace:\n");
  const auto map = report.find("Memory map:\n");
  ASSERT_NE(trace, std::string::npos);
  ASSERT_NE(map, std::string::npos);
  EXPECT_NE(report.find("Assert", trace), std::string::npos) << report.substr(trace, map - trace);
  EXPECT_NE(report.find("[stack]", map), std::string::npos);
}

TEST(Assert, ConcurrentErrorsEachThrowWithThePath) {
  const auto path = CrashReportPath();
  test::DebugOutputCapture output;
  std::vector<std::thread> threads;
  std::vector<std::string> paths(4);
  for (std::size_t i = 0; i < paths.size(); ++i)
    threads.emplace_back([&, i] {
      try {
        Assert().print_current_val(static_cast<int>(i), "thread").error("M");
      } catch (ExceptionWithMinidump const& e) {
        paths[i] = e.GetDumpFilePath();
      }
    });
  for (auto& thread : threads)
    thread.join();
  std::ifstream in(path);
  const std::string report((std::istreambuf_iterator<char>(in)), {});
  std::filesystem::remove(path);
  for (auto const& thrown : paths)
    EXPECT_EQ(thrown, path.string());
  // One whole report, not a mixture: a single context and a single map.
  EXPECT_EQ(report.find("thread="), report.rfind("thread="));
  EXPECT_NE(report.find("Memory map:"), std::string::npos);
  EXPECT_EQ(report.find("Memory map:"), report.rfind("Memory map:"));
}

TEST(AssertDeathTest, FatalLevelsAbort) {
  auto fatal = [](auto finish) {
    SetDebugOutputHandler(
        [](std::string_view text) { std::fwrite(text.data(), 1, text.size(), stderr); });
    Assert a;
    finish(WithContext(a));
  };
  EXPECT_DEATH(fatal([](Assert& a) { a.fatal("the end"); }), "Failed:a > b(.|\n)*the end");
  EXPECT_DEATH(fatal([](Assert& a) { a.level(Assert::LEVEL_FATAL, "level two"); }),
               "b=5\nlevel two");
}

// Run only inside copies of this program (below): raises an error and prints
// the report path that the exception carries.
TEST(AssertCopy, DISABLED_RaiseError) {
  test::DebugOutputCapture output;
  try {
    Assert().error("from a copy");
  } catch (ExceptionWithMinidump const& e) {
    std::printf("\nreport path: %s\n", e.GetDumpFilePath().c_str());
  }
}

// The report path of a copy of this program named `name` in `folder` (empty
// when the copy did not report one).
std::string ReportPathOfCopy(std::filesystem::path const& folder, std::string const& name) {
  const auto copy = folder / name;
  std::filesystem::copy_file(std::filesystem::path(GCoreSystem::GetExeFilePath()), copy);
  const auto output = folder / (name + ".out");
  const std::string command = "'" + copy.string() +
                              "' --gtest_also_run_disabled_tests"
                              " --gtest_filter=AssertCopy.DISABLED_RaiseError > '" +
                              output.string() + "' 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0);
  std::ifstream in(output);
  for (std::string line; std::getline(in, line);)
    if (line.rfind("report path: ", 0) == 0)
      return line.substr(13);
  return {};
}

TEST(Assert, ReportPathReplacesTheLastExtensionOfTheProgramName) {
  test::TempFolder temp;
  const auto folder = temp.Path() / "dotted.folder"; // its dot is no extension
  std::filesystem::create_directory(folder);
  for (auto const& [program, report] :
       {std::pair{"host.exe", "host.dmp"}, std::pair{"host.tar.gz", "host.tar.dmp"},
        std::pair{"plain", "plain.dmp"}, std::pair{".hidden", ".hidden.dmp"}}) {
    SCOPED_TRACE(program);
    EXPECT_EQ(ReportPathOfCopy(folder, program), (folder / report).string());
    std::ifstream in(folder / report);
    const std::string text((std::istreambuf_iterator<char>(in)), {});
    EXPECT_NE(text.find("from a copy"), std::string::npos);
  }
}

TEST(Assert, UnwritableReportStillThrowsWithItsPath) {
  test::TempFolder temp;
  const auto blocked = temp.Path() / "blocked.dmp";
  std::filesystem::create_directory(blocked); // the report file cannot be created
  EXPECT_EQ(ReportPathOfCopy(temp.Path(), "blocked"), blocked.string());
  EXPECT_TRUE(std::filesystem::is_directory(blocked));
  EXPECT_TRUE(std::filesystem::is_empty(blocked));
}

} // namespace
} // namespace zrn

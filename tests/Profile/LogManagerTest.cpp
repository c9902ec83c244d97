#include <zrn/Profile/ErrorException.h>
#include <zrn/Profile/GLog/LogManager.h>

#include "Support/DebugOutputCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

namespace zrn {
namespace {

using test::DebugOutputCapture;

std::string ReadFile(std::filesystem::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void ExpectMatches(std::wstring const& text, wchar_t const* pattern) {
  EXPECT_TRUE(std::regex_match(text, std::wregex(pattern)))
      << std::string(text.begin(), text.end());
}

std::wstring ThrownDescription(std::function<void()> const& action) {
  try {
    action();
  } catch (CErrorException const& e) {
    EXPECT_EQ(e.GetFile(), "Profile\\GLog");
    return e.GetDescription();
  }
  return L"(nothing thrown)";
}

// A scratch log file, removed afterwards.
class TempLogFile {
public:
  explicit TempLogFile(std::string const& name = "zrn_log_test.log")
      : m_path(std::filesystem::path(::testing::TempDir()) / name) {
    std::filesystem::remove(m_path);
  }
  ~TempLogFile() { std::filesystem::remove(m_path); }
  std::filesystem::path const& Path() const { return m_path; }
  std::wstring WidePath() const { return m_path.wstring(); }

private:
  std::filesystem::path m_path;
};

// Every test uses a manager of its own; only the debugger output is shared.
class LogManagerTest : public ::testing::Test {
protected:
  void WriteToStreamOnly() {
    m_log.SetDebuggerOutput(false);
    m_log.AppendOuputStream(&m_stream);
  }

  CLogManager m_log;
  std::wostringstream m_stream;
};

TEST_F(LogManagerTest, FreshManagerWritesTrivialLinesToTheDebuggerOnly) {
  DebugOutputCapture debugger;
  EXPECT_TRUE(m_log.IsDebuggerOutput());
  EXPECT_FALSE(m_log.IsLogFileOutput());
  EXPECT_FALSE(m_log.IsTimeStamp());
  EXPECT_FALSE(m_log.IsShowLineNumber());
  EXPECT_EQ(m_log.GetLogLevel(), LOG_LEVEL_TRIVIAL);

  m_log.Log(L"shown", LOG_LEVEL_TRIVIAL);
  m_log.Log(L"dropped", LOG_LEVEL_DEBUG);
  EXPECT_EQ(debugger.Texts(), std::vector<std::string>{"[TRIVIAL]: shown\n"});
}

TEST_F(LogManagerTest, LevelTextsAndNarrowMessages) {
  EXPECT_EQ(m_log.GetLogLevelString(LOG_LEVEL_DEBUG), L"DEBUG");
  EXPECT_EQ(m_log.GetLogLevelString(static_cast<EnLogLevel>(9)), L"");

  WriteToStreamOnly();
  m_log.Log(L"negative levels always pass", static_cast<EnLogLevel>(-4));
  m_log.Log(L"too verbose", static_cast<EnLogLevel>(4));
  m_log.Log(std::string("caf\xe9"), LOG_LEVEL_NORMAL); // widened byte by byte
  EXPECT_EQ(m_stream.str(), L"[]: negative levels always pass\n[NORMAL]: caf\u00e9\n");
}

TEST_F(LogManagerTest, LineNumbersAndTimeStamps) {
  WriteToStreamOnly();
  m_log.ShowLineNumber(true);
  m_log.Log(L"one", LOG_LEVEL_NORMAL);
  m_log.Log(L"filtered lines take no number", LOG_LEVEL_DEBUG);
  m_log.Log(L"two", LOG_LEVEL_NORMAL);
  EXPECT_EQ(m_stream.str(), L"     1 [NORMAL]: one\n     2 [NORMAL]: two\n");

  m_stream.str(L"");
  m_log.ResetLineNumber();
  m_log.SetTimeStamp(true);
  m_log.Log(L"stamped", LOG_LEVEL_CRITICAL);
  ExpectMatches(m_stream.str(), L"     1 \\[([01][0-9]|2[0-3]):[0-5][0-9]:[0-5][0-9]\\] - "
                                L"\\[CRITICAL\\]: stamped\n");
}

TEST_F(LogManagerTest, LevelStackLimits) {
  EXPECT_EQ(CLogManager::MAX_LOG_LEVE_STACK_SIZE, 256);
  for (int i = 1; i < CLogManager::MAX_LOG_LEVE_STACK_SIZE; ++i)
    m_log.PushLogLevel(LOG_LEVEL_DEBUG);
  EXPECT_EQ(ThrownDescription([&] { m_log.PushLogLevel(LOG_LEVEL_NORMAL); }),
            L"Log Level Stack is full.");
  EXPECT_EQ(m_log.GetLogLevel(), LOG_LEVEL_DEBUG);
  for (int i = 1; i < CLogManager::MAX_LOG_LEVE_STACK_SIZE; ++i)
    m_log.PopLogLevel();
  EXPECT_EQ(m_log.GetLogLevel(), LOG_LEVEL_TRIVIAL);

  m_log.PopLogLevel();
  EXPECT_EQ(ThrownDescription([&] { m_log.GetLogLevel(); }), L"Log Level Stack is empty.");
  EXPECT_EQ(ThrownDescription([&] { m_log.PopLogLevel(); }), L"Log Level Stack is empty.");

  // With no level at all, lines are filtered as at the default level.
  WriteToStreamOnly();
  m_log.Log(L"kept", LOG_LEVEL_TRIVIAL);
  m_log.Log(L"dropped", LOG_LEVEL_DEBUG);
  EXPECT_EQ(m_stream.str(), L"[TRIVIAL]: kept\n");

  m_log.SetLogLevel(LOG_LEVEL_CRITICAL); // pushes onto the empty stack
  EXPECT_EQ(m_log.GetLogLevel(), LOG_LEVEL_CRITICAL);
  m_log.SetLogLevel(LOG_LEVEL_DEBUG); // replaces the top
  m_log.PopLogLevel();
  EXPECT_THROW(m_log.PopLogLevel(), CErrorException);
}

TEST(LogManagerSingleton, StackErrorsLogTheirOwnCriticalLine) {
  CLogManager& log = CSingleton<CLogManager>::GetInstance();
  EXPECT_EQ(&log, CSingleton<CLogManager>::GetInstancePtr());
  std::wostringstream stream;
  log.AppendOuputStream(&stream);
  log.PopLogLevel();
  EXPECT_THROW(log.PopLogLevel(), CErrorException);
  log.PushLogLevel(LOG_LEVEL_TRIVIAL);
  log.RemoveOuputStream(&stream);
  ExpectMatches(stream.str(), L"\\[CRITICAL\\]: Log Level Stack is empty\\. - "
                              L"\\[FILE\\]: Profile\\\\GLog \\[LINE\\]: [0-9]+\n");
}

TEST_F(LogManagerTest, DebuggerOutputComesBeforeTheStreams) {
  std::wstring streamWhenDebuggerWrote = L"(debugger not called)";
  auto previous =
      SetDebugOutputHandler([&](std::string_view) { streamWhenDebuggerWrote = m_stream.str(); });
  m_log.AppendOuputStream(&m_stream);
  m_log.Log(L"line", LOG_LEVEL_NORMAL);
  SetDebugOutputHandler(std::move(previous));
  EXPECT_EQ(streamWhenDebuggerWrote, L"");
  EXPECT_EQ(m_stream.str(), L"[NORMAL]: line\n");
}

TEST_F(LogManagerTest, StreamsRegisteredTwiceAreRemovedOneAtATime) {
  std::wostringstream other;
  WriteToStreamOnly();
  m_log.AppendOuputStream(&other);
  m_log.AppendOuputStream(&m_stream);
  m_log.Log(L"a", LOG_LEVEL_NORMAL);
  m_log.RemoveOuputStream(&m_stream);
  m_log.Log(L"b", LOG_LEVEL_NORMAL);
  m_log.RemoveOuputStream(&m_stream);
  m_log.RemoveOuputStream(&m_stream); // not registered any more: nothing happens
  m_log.Log(L"c", LOG_LEVEL_NORMAL);
  EXPECT_EQ(m_stream.str(), L"[NORMAL]: a\n[NORMAL]: a\n[NORMAL]: b\n");
  m_log.RemoveAllOuputStream();
  m_log.Log(L"d", LOG_LEVEL_NORMAL);
  EXPECT_EQ(other.str(), L"[NORMAL]: a\n[NORMAL]: b\n[NORMAL]: c\n");
}

TEST_F(LogManagerTest, LogFileStartsWithABannerAndAppends) {
  TempLogFile file;
  std::ofstream(file.Path()) << "earlier content\n";
  EXPECT_TRUE(m_log.SetOutputFilePath(L"")); // nothing open: nothing happens
  EXPECT_FALSE(m_log.IsLogFileOutput());

  m_log.SetDebuggerOutput(false);
  ASSERT_TRUE(m_log.SetOutputFilePath(file.WidePath()));
  EXPECT_TRUE(m_log.IsLogFileOutput());
  m_log.Log(L"\u00e9\u4e2d\U0001F600", LOG_LEVEL_NORMAL);
  m_log.Log(std::wstring(1, static_cast<wchar_t>(0xD800)), LOG_LEVEL_NORMAL);
  EXPECT_TRUE(m_log.SetOutputFilePath(L""));
  m_log.Log(L"after closing", LOG_LEVEL_NORMAL);

  const std::string text = ReadFile(file.Path());
  const std::string rule(37, '-');
  EXPECT_TRUE(std::regex_match(
      text, std::regex("earlier content\n\n" + rule +
                       "[0-9]{4}-[A-Z][a-z]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}" + rule +
                       "\n\\[NORMAL\\]: \xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\n"
                       "\\[NORMAL\\]: \xED\xA0\x80\n")))
      << text;
}

TEST_F(LogManagerTest, FailedOpensAndTheFileOutputFlag) {
  TempLogFile first("zrn_log_first.log");
  TempLogFile second("zrn_log_second.log");
  m_log.SetDebuggerOutput(false);
  EXPECT_FALSE(m_log.SetOutputFilePath(L"/nonexistent-folder/x.log"));
  EXPECT_FALSE(m_log.IsLogFileOutput());
  ASSERT_TRUE(m_log.SetOutputFilePath(first.WidePath()));
  m_log.Log(L"kept", LOG_LEVEL_NORMAL);
  m_log.SetLogFileOutput(false);
  m_log.Log(L"flag off", LOG_LEVEL_NORMAL);
  m_log.SetLogFileOutput(true);
  m_log.Log(L"critical lines reach the disk at once", LOG_LEVEL_CRITICAL);
  EXPECT_NE(ReadFile(first.Path()).find("]: critical lines reach the disk at once\n"),
            std::string::npos);

  // A second open fails and stops file output until the file is reopened.
  EXPECT_FALSE(m_log.SetOutputFilePath(second.WidePath()));
  m_log.Log(L"lost", LOG_LEVEL_NORMAL);
  EXPECT_TRUE(m_log.SetOutputFilePath(L""));
  ASSERT_TRUE(m_log.SetOutputFilePath(first.WidePath()));
  m_log.Log(L"kept again", LOG_LEVEL_NORMAL);
  m_log.SetOutputFilePath(L"");

  const std::string text = ReadFile(first.Path());
  EXPECT_NE(text.find("[NORMAL]: kept\n"), std::string::npos);
  EXPECT_EQ(text.find("flag off"), std::string::npos);
  EXPECT_EQ(text.find("lost"), std::string::npos);
  EXPECT_NE(text.find("[NORMAL]: kept again\n"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(second.Path()));
}

// Guards against a log file on a full disk dropping every line without a
// word: the first failed write is reported once, the host can ask, and the
// other outputs go on.
TEST_F(LogManagerTest, FullDiskIsReportedOnceAndTheOtherOutputsGoOn) {
  if (!std::filesystem::exists("/dev/full"))
    GTEST_SKIP() << "no /dev/full";
  DebugOutputCapture debugger;
  m_log.AppendOuputStream(&m_stream);
  EXPECT_FALSE(m_log.IsLogFileGood()); // no file open
  EXPECT_FALSE(m_log.SetOutputFilePath(L"/dev/full"));
  EXPECT_FALSE(m_log.IsLogFileGood());
  const std::string filler(1000, 'x');
  for (int i = 0; i < 100; ++i) // more than the file's buffer
    m_log.Log(filler, i % 10 == 0 ? LOG_LEVEL_CRITICAL : LOG_LEVEL_NORMAL);
  EXPECT_TRUE(m_log.SetOutputFilePath(L""));

  std::vector<std::string> reports, lines;
  for (std::string const& text : debugger.Texts())
    (text.rfind("zrn: the log file", 0) == 0 ? reports : lines).push_back(text);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_NE(reports[0].find("\"/dev/full\" cannot be written ("), std::string::npos) << reports[0];
  EXPECT_EQ(lines.size(), 100u);
  const std::wstring streamed = m_stream.str();
  EXPECT_EQ(std::count(streamed.begin(), streamed.end(), L'\n'), 100);

  // A file that works again is good again, and a new failure is reported anew.
  TempLogFile file;
  ASSERT_TRUE(m_log.SetOutputFilePath(file.WidePath()));
  m_log.Log(L"written", LOG_LEVEL_NORMAL);
  EXPECT_TRUE(m_log.IsLogFileGood());
  EXPECT_NE(ReadFile(file.Path()).find("[NORMAL]: written\n"), std::string::npos);
  m_log.SetOutputFilePath(L"");
  EXPECT_FALSE(m_log.SetOutputFilePath(L"/dev/full"));
  m_log.SetOutputFilePath(L"");
  m_log.RemoveOuputStream(&m_stream);
  EXPECT_EQ(debugger.Texts().size(), 103u); // one more report, and the line
}

TEST_F(LogManagerTest, LinesFromManyThreadsNeverInterleave) {
  WriteToStreamOnly();
  m_log.ShowLineNumber(true);
  constexpr int kThreads = 4;
  constexpr int kLines = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([this, t] {
      for (int i = 0; i < kLines; ++i)
        m_log.Log(L"thread " + std::to_wstring(t) + L" line " + std::to_wstring(i),
                  LOG_LEVEL_NORMAL);
    });
  for (auto& thread : threads)
    thread.join();

  std::wistringstream lines(m_stream.str());
  std::wstring line;
  int expectedNumber = 1;
  std::vector<int> nextPerThread(kThreads, 0);
  const std::wregex pattern(L" *([0-9]+) \\[NORMAL\\]: thread ([0-9]) line ([0-9]+)");
  while (std::getline(lines, line)) {
    std::wsmatch match;
    ASSERT_TRUE(std::regex_match(line, match, pattern)) << line.c_str();
    EXPECT_EQ(std::stoi(match[1].str()), expectedNumber++);
    const int t = std::stoi(match[2].str());
    EXPECT_EQ(std::stoi(match[3].str()), nextPerThread[t]++);
  }
  EXPECT_EQ(expectedNumber, kThreads * kLines + 1);
}

TEST_F(LogManagerTest, StreamMayLogFromWithinAnInsertion) {
  // A stream that logs a second line while the first is inserted into it.
  struct ReentrantBuf : std::wstreambuf {
    CLogManager* log = nullptr;
    std::wstring text;
    std::streamsize xsputn(wchar_t const* s, std::streamsize n) override {
      text.append(s, static_cast<std::size_t>(n));
      if (log) {
        CLogManager* const once = std::exchange(log, nullptr);
        once->Log(L"nested", LOG_LEVEL_NORMAL);
      }
      return n;
    }
  } buf;
  buf.log = &m_log;
  std::wostream reentrant(&buf);
  m_log.AppendOuputStream(&reentrant);
  WriteToStreamOnly();
  m_log.Log(L"outer", LOG_LEVEL_NORMAL);
  EXPECT_EQ(buf.text, L"[NORMAL]: outer\n[NORMAL]: nested\n");
  EXPECT_EQ(m_stream.str(), L"[NORMAL]: nested\n[NORMAL]: outer\n");
}

} // namespace
} // namespace zrn

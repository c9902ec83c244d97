#include <zrn/Profile/ErrorException.h>
#include <zrn/Profile/GLog/LogManager.h>

#include <gtest/gtest.h>

#include <sstream>

namespace zrn {
namespace {

// Captures what the log manager writes while the object lives.
class LogCapture {
public:
  LogCapture() : m_log(CSingleton<CLogManager>::GetInstance()) {
    m_log.AppendOuputStream(&m_stream);
  }
  ~LogCapture() { m_log.RemoveOuputStream(&m_stream); }
  std::wstring Text() const { return m_stream.str(); }

private:
  CLogManager& m_log;
  std::wostringstream m_stream;
};

TEST(CErrorException, ConstructionLogsOneCriticalLine) {
  LogCapture capture;
  CErrorException error(L"Widget broke", "Object\\Widget", 275);
  EXPECT_EQ(capture.Text(), L"[CRITICAL]: Widget broke - [FILE]: Object\\Widget [LINE]: 275\n");
  EXPECT_EQ(error.GetDescription(), L"Widget broke");
  EXPECT_EQ(error.GetFile(), "Object\\Widget");
  EXPECT_EQ(error.GetLine(), 275);

  // A null file is empty; high bytes are widened as they are.
  CErrorException(L"d", nullptr, 0);
  CErrorException(L"d", "caf\xe9", 9);
  EXPECT_EQ(capture.Text().substr(capture.Text().find(L"\n") + 1),
            L"[CRITICAL]: d - [FILE]:  [LINE]: 0\n[CRITICAL]: d - [FILE]: caf\u00e9 [LINE]: 9\n");
}

// Guards against what() giving the standard library's fixed text: a host
// that catches std::exception must see what went wrong, and where.
TEST(CErrorException, WhatGivesTheLoggedTextInUtf8) {
  try {
    throw CErrorException(L"Tr\u00e8s cass\u00e9", "Profile\\GLog", 12);
  } catch (std::exception const& e) {
    EXPECT_STREQ(e.what(), "Tr\xC3\xA8s cass\xC3\xA9 - [FILE]: Profile\\GLog [LINE]: 12");
  }
  CErrorException original(L"copied", "x", 3);
  CErrorException assigned(L"other", nullptr, 0);
  assigned = original;
  EXPECT_STREQ(CErrorException(original).what(), "copied - [FILE]: x [LINE]: 3");
  EXPECT_STREQ(assigned.what(), original.what());
}

TEST(CErrorException, CopiesLogNothing) {
  CErrorException original(L"first", "a", 1);
  CErrorException other(L"second", "b", 2);
  LogCapture capture;
  CErrorException copy(original);
  other = original;
  EXPECT_TRUE(capture.Text().empty());
  EXPECT_EQ(copy.GetDescription(), L"first");
  EXPECT_EQ(other.GetFile(), "a");
  EXPECT_EQ(other.GetLine(), 1);
}

} // namespace
} // namespace zrn

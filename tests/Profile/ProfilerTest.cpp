#include <zrn/Profile/Profiler.h>

#include "Support/TempFolder.h"
#include "Support/TextLines.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

namespace zrn {
namespace {

// A clock the test moves by hand, installed for the lifetime of the object.
class FakeClock {
public:
  FakeClock() : m_previous(SetProfileClock(&Read)) { s_now = 0; }
  ~FakeClock() { SetProfileClock(m_previous); }
  static void Advance(long ms) { s_now += ms; }

private:
  static long Read() { return s_now; }
  static inline long s_now = 0;
  ProfileClock m_previous;
};

using zrn::test::Lines;

// A (10 ms) with B (4 ms) inside, in one frame.
void RunKnownFrame(CProfiler& profiler) {
  profiler.BeginProfile(L"A");
  FakeClock::Advance(3);
  profiler.BeginProfile(L"B");
  FakeClock::Advance(4);
  profiler.EndProfile(L"B");
  FakeClock::Advance(3);
  profiler.EndProfile(L"A");
}

std::wstring Table(CProfiler& profiler) {
  std::wostringstream out;
  EXPECT_TRUE(profiler.LogProfileResult(out));
  return out.str();
}

TEST(Profiler, SectionsReuseNodesAndCountFrames) {
  FakeClock clock;
  CProfiler profiler;
  for (int frame = 0; frame < 2; ++frame) {
    profiler.BeginProfile(L"A");
    for (int i = 0; i < 3; ++i) {
      profiler.BeginProfile(L"B");
      FakeClock::Advance(1);
      profiler.EndProfile(L"B");
    }
    profiler.EndProfile(L"A");
  }
  auto const& top = profiler.GetRootInstance()->children;
  ASSERT_EQ(top.size(), 1u);
  EXPECT_EQ(top[0]->totalCalls, 2u);
  EXPECT_EQ(top[0]->frameId, 2u); // one frame per outermost section
  ASSERT_EQ(top[0]->children.size(), 1u);
  CProfileInstance const& b = *top[0]->children[0];
  EXPECT_EQ(b.lastFrameCalls, 3u);
  EXPECT_EQ(b.totalCalls, 6u);
  EXPECT_EQ(b.depth, 2u);
  EXPECT_EQ(profiler.GetTitlesStr(), L"Time Profile:\nA(1)\n  B(3)");

  // The same name under another parent is another node.
  profiler.BeginProfile(L"B");
  profiler.EndProfile(L"B");
  EXPECT_EQ(top.size(), 2u);
}

TEST(Profiler, TitlesAndValuesTexts) {
  FakeClock clock;
  CProfiler profiler;
  EXPECT_EQ(profiler.GetTitlesStr(), L"Time Profile:");
  EXPECT_EQ(profiler.GetValueStr(), L"");
  RunKnownFrame(profiler);
  EXPECT_EQ(profiler.GetTitlesStr(), L"Time Profile:\nA(1)\n  B(1)");
  EXPECT_EQ(profiler.GetValueStr(), L"\n10.00ms\n4.00ms-40%");

  // A new frame makes the cached texts stale.
  profiler.BeginProfile(L"C");
  FakeClock::Advance(2);
  profiler.EndProfile(L"C");
  EXPECT_EQ(profiler.GetValueStr(), L"\n10.00ms\n4.00ms-40%\n2.00ms");
}

TEST(Profiler, ResetWaitsForTheOutermostSection) {
  CProfiler profiler;
  profiler.BeginProfile(L"A");
  profiler.BeginProfile(L"B");
  profiler.ResetProfile();
  profiler.EndProfile(L"B");
  EXPECT_EQ(profiler.GetRootInstance()->children.size(), 1u);
  profiler.EndProfile(L"A");
  EXPECT_TRUE(profiler.GetRootInstance()->children.empty());

  // Frame counting starts again at 1, and an extra end changes nothing.
  profiler.EndProfile(L"A");
  profiler.BeginProfile(L"A");
  profiler.EndProfile(L"A");
  ASSERT_EQ(profiler.GetRootInstance()->children.size(), 1u);
  EXPECT_EQ(profiler.GetRootInstance()->children[0]->frameId, 1u);
  EXPECT_EQ(profiler.GetRootInstance()->children[0]->totalCalls, 1u);
}

TEST(Profiler, DeepNestingIsClearedWithoutRecursion) {
  CProfiler profiler;
  for (int i = 0; i < 200000; ++i)
    profiler.BeginProfile(L"level");
  CProfiler copy(profiler);
  profiler.ResetProfile(); // deferred: sections are open
  for (int i = 0; i < 200000; ++i)
    profiler.EndProfile(L"level");
  EXPECT_TRUE(profiler.GetRootInstance()->children.empty());
  EXPECT_EQ(copy.GetRootInstance()->children.size(), 1u);
}

TEST(Profiler, CopiesOwnTheirTrees) {
  FakeClock clock;
  auto original = std::make_unique<CProfiler>();
  RunKnownFrame(*original);
  original->BeginProfile(L"A");
  original->BeginProfile(L"B");
  CProfiler copy(*original);
  CProfiler assigned;
  assigned = *original;
  original.reset();

  // Both continue inside "B" of their own trees.
  for (CProfiler* p : {&copy, &assigned}) {
    FakeClock::Advance(5);
    p->EndProfile(L"B");
    p->EndProfile(L"A");
    CProfileInstance const& a = *p->GetRootInstance()->children.at(0);
    EXPECT_EQ(a.totalCalls, 2u);
    EXPECT_EQ(a.children.at(0)->parent, &a);
    EXPECT_EQ(a.parent, p->GetRootInstance());
  }
}

TEST(ProfilerTable, ExactRowsOfAKnownTree) {
  FakeClock clock;
  CProfiler profiler;
  RunKnownFrame(profiler);
  const std::wstring longName(45, L'n');
  profiler.BeginProfile(longName); // open while the table is written
  const auto lines = Lines(Table(profiler));
  ASSERT_EQ(lines.size(), 7u);

  EXPECT_TRUE(
      std::regex_match(lines[0], std::wregex(L"-{54}Profile Result \\(\\d{8}T\\d{6}\\)-{54}")))
      << lines[0];
  EXPECT_EQ(lines[1],
            L"                  NAME                  |  AVG   | MIN  | MAX  | TOTAL  | HIT  "
            L"| AVG_RT |PRNT%|ROOT%|     HIERARCHY      ");
  EXPECT_EQ(lines[1].size(), 121u);
  EXPECT_EQ(lines[2], std::wstring(140, L'-'));
  EXPECT_EQ(lines[3], std::wstring(39, L' ') + L"A|   10.00|    10|    10|      10|     1|   10.00|"
                                               L"  100|  100|----#");
  EXPECT_EQ(lines[4], std::wstring(39, L' ') + L"B|    4.00|     4|     4|       4|     1|    4.00|"
                                               L"   40|   40|--------*");
  // Never completed: no average, MIN cut from 100000000, base time 0.
  EXPECT_EQ(lines[5], std::wstring(40, L'n') + L"|    0.00|100000|     0|       0|     0|    0.00|"
                                               L"  100|  100|----#");
  EXPECT_EQ(lines[6], std::wstring(140, L'-'));
}

TEST(ProfilerTable, EmptyProfilerAndBadStream) {
  CProfiler profiler;
  EXPECT_EQ(Lines(Table(profiler)).size(), 4u); // title, headings, two rules

  std::wostringstream bad;
  bad.setstate(std::ios::failbit);
  EXPECT_FALSE(profiler.LogProfileResult(bad));
  bad.clear();
  EXPECT_TRUE(bad.str().empty());
}

TEST(ProfilerTable, FilesAreAppendedTo) {
  test::TempFolder folder;
  CProfiler profiler;
  profiler.BeginProfile(L"\u00e9t\u00e9");
  profiler.EndProfile(L"");
  const std::wstring path = folder.Wide("profile.txt");
  ASSERT_TRUE(profiler.LogProfileResult(path));
  ASSERT_TRUE(profiler.LogProfileResult(path));
  std::ifstream in(folder.Path() / "profile.txt");
  std::string text((std::istreambuf_iterator<char>(in)), {});
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 10);
  EXPECT_NE(text.find("\xc3\xa9t\xc3\xa9|"), std::string::npos); // UTF-8

  EXPECT_FALSE(profiler.LogProfileResult(folder.Wide("missing/profile.txt")));
  auto& manager = CSingleton<CProfileManager>::GetInstance();
  EXPECT_FALSE(manager.DumpProfile(folder.Wide("missing/profile.txt")));
}

TEST(ProfileManager, ThreadsHaveTheirOwnTreesAndHeaders) {
  auto& manager = CSingleton<CProfileManager>::GetInstance();
  { CProfile scope(L"main thread"); }
  std::thread worker([&] {
    CProfile outer(L"worker");
    CProfile inner(std::wstring(L"inner"));
  });
  worker.join();

  ASSERT_EQ(manager.GetRootInstance()->children.size(), 1u);
  EXPECT_EQ(manager.GetRootInstance()->children[0]->name, L"main thread");

  std::wostringstream out;
  EXPECT_TRUE(manager.DumpProfile(out));
  std::vector<std::wstring> headers;
  for (auto const& line : Lines(out.str()))
    if (line.find(L"Thread: ") != std::wstring::npos)
      headers.push_back(line);
  ASSERT_EQ(headers.size(), 2u);
  for (auto const& header : headers) {
    // "Thread: " and a lower-case hexadecimal id, centred with "-".
    std::wsmatch match;
    ASSERT_TRUE(std::regex_match(header, match, std::wregex(L"(-*)Thread: [0-9a-f]+(-*)")))
        << header;
    if (header.size() < 30)
      continue;
    EXPECT_EQ(header.size(), 30u);
    EXPECT_LE(match[1].length(), match[2].length());
    EXPECT_GE(match[1].length() + 1, match[2].length());
  }
  EXPECT_NE(out.str().find(L"--------*"), std::wstring::npos); // the worker's inner row
  manager.ResetProfile();
}

} // namespace
} // namespace zrn

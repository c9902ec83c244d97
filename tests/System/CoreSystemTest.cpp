#include <zrn/System/CoreSystem.h>

#include "Support/LogCapture.h"
#include "Support/TempFolder.h"

#include <gtest/gtest.h>

#include <boost/filesystem/exception.hpp>

#include <filesystem>
#include <fstream>
#include <regex>
#include <unistd.h>

namespace zrn {
namespace {

namespace fs = std::filesystem;
using test::LogCapture;
using test::TempFolder;

TEST(GCoreSystem, ModuleFoldersEndWithTheirSeparator) {
  const std::wstring exe = GCoreSystem::GetExeFilePath();
  EXPECT_EQ(exe, fs::canonical("/proc/self/exe").wstring());
  EXPECT_EQ(GCoreSystem::GetExePath(), exe.substr(0, exe.rfind(L'/') + 1));
  const std::wstring library = GCoreSystem::GetCommonDllPath();
  ASSERT_FALSE(library.empty());
  EXPECT_EQ(library.back(), L'/');
  EXPECT_TRUE(fs::exists(fs::path(library) / "libzrn.so"));
  EXPECT_EQ(GCoreSystem::GetInstance(), GCoreSystem::GetInstance());
}

TEST(GCoreSystem, BacktrackClimbsToTheFolderOrFallsBack) {
  const std::wstring exeFolder = GCoreSystem::GetExePath();
  // A folder beside the executable's parent: found one level up.
  TempFolder scratch;
  const fs::path sibling = fs::path(exeFolder) / ".." / scratch.Path().filename();
  fs::create_directory(sibling);
  const std::wstring name = scratch.Path().filename().wstring();
  EXPECT_EQ(GCoreSystem::BacktrackFolderOnExePath(name), exeFolder + L"../" + name + L"/");
  EXPECT_EQ(GCoreSystem::GetResourcePath(name), exeFolder + L"../" + name + L"/");
  fs::remove(sibling);
  EXPECT_EQ(GCoreSystem::BacktrackFolderOnExePath(L"no-such-folder-zrn"), L"./no-such-folder-zrn/");
  EXPECT_EQ(GCoreSystem::BacktrackFolderOnCommonDLLPath(L"no-such-folder-zrn"),
            L"./no-such-folder-zrn/");
}

TEST(GCoreSystem, CombinePathKeepsExactlyOneSeparator) {
  EXPECT_EQ(GCoreSystem::CombinePath(L"a\\", L"\\b"), L"a\\b");
  EXPECT_EQ(GCoreSystem::CombinePath(L"a/", L"/b"), L"a/b");
  EXPECT_EQ(GCoreSystem::CombinePath(L"a/", L"\\b"), L"a\\b");
  EXPECT_EQ(GCoreSystem::CombinePath(L"a", L"b"), L"a\\b");
  EXPECT_EQ(GCoreSystem::CombinePath(L"a/", L"b"), L"a/b");
  EXPECT_EQ(GCoreSystem::CombinePath(L"a", L"\\b"), L"a\\b");
  EXPECT_EQ(GCoreSystem::CombinePath(L"", L"b"), L"b");
  EXPECT_EQ(GCoreSystem::CombinePath(L"a", L""), L"a");
}

TEST(GCoreSystem, AbsolutePathsAreDrivesNetworkPathsAndFileUrls) {
  for (wchar_t const* path :
       {L"C:/x", L"C:\\x", L"\\\\server\\share", L"file:///C:/x", L"file:///C:\\x"})
    EXPECT_TRUE(GCoreSystem::IsAbsolutePath(path)) << path;
  for (wchar_t const* path : {L"C:", L"/x", L"x:y", L"\\\\", L"file:///C:", L"file://C:/x", L""})
    EXPECT_FALSE(GCoreSystem::IsAbsolutePath(path)) << path;
}

TEST(GCoreSystem, PathPiecesTreatBothSeparatorsAlike) {
  EXPECT_EQ(GCoreSystem::GetFileName(L"C:\\app\\bin\\tool.exe"), L"tool.exe");
  EXPECT_EQ(GCoreSystem::GetPath(L"C:\\app\\bin\\tool.exe"), L"C:\\app\\bin");
  EXPECT_EQ(GCoreSystem::GetFileName(L"/a/b\u00e9.txt"), L"b\u00e9.txt");
  std::wstring folder, name;
  GCoreSystem::SplitFilePath(L"x\u4e2d/y\\z.dat", folder, name);
  EXPECT_EQ(folder, L"x\u4e2d/y");
  EXPECT_EQ(name, L"z.dat");
  GCoreSystem::SplitFilePath(L"plain", folder, name);
  EXPECT_EQ(folder, L"");
  EXPECT_EQ(name, L"plain");
}

TEST(GCoreSystem, CreateDeleteAndTestFolders) {
  TempFolder temp;
  LogCapture log;
  const std::wstring made = temp.Wide("made");
  EXPECT_TRUE(GCoreSystem::MakeDirectory(made));
  EXPECT_FALSE(GCoreSystem::MakeDirectory(made)); // exists: false, logs nothing
  EXPECT_TRUE(log.Text().empty());
  EXPECT_TRUE(GCoreSystem::IsDirectoryExist(made));
  EXPECT_TRUE(GCoreSystem::IsFileExist(made));

  EXPECT_FALSE(GCoreSystem::MakeDirectory(temp.Wide("missing/child")));
  EXPECT_NE(log.Text().find(L"[CRITICAL]: "), std::wstring::npos);
  EXPECT_NE(log.Text().find(L"missing/child"), std::wstring::npos);

  std::ofstream(temp.Path() / "made" / "file.txt") << "x";
  const std::wstring file = temp.Wide("made/file.txt");
  EXPECT_TRUE(GCoreSystem::IsFileExist(file));
  EXPECT_FALSE(GCoreSystem::IsDirectoryExist(file));
  EXPECT_FALSE(GCoreSystem::DeleteDirectory(file));
  EXPECT_TRUE(GCoreSystem::DeleteDirectory(made));
  EXPECT_FALSE(GCoreSystem::IsFileExist(made));
  EXPECT_FALSE(GCoreSystem::DeleteDirectory(made));
  EXPECT_FALSE(GCoreSystem::DeleteFileWithPath(file));
}

TEST(GCoreSystem, ErrorsOtherThanAMissingPathAreThrown) {
  TempFolder temp;
  // A loop of symbolic links cannot be resolved: an error, not a missing path.
  fs::create_directory_symlink(temp.Path() / "b", temp.Path() / "a");
  fs::create_directory_symlink(temp.Path() / "a", temp.Path() / "b");
  EXPECT_THROW(GCoreSystem::IsFileExist(temp.Wide("a/x")), boost::filesystem::filesystem_error);
  EXPECT_THROW(GCoreSystem::IsDirectoryExist(temp.Wide("a/x")),
               boost::filesystem::filesystem_error);
  EXPECT_THROW(GCoreSystem::DeleteFileWithPath(temp.Wide("a/x")),
               boost::filesystem::filesystem_error);
  LogCapture log;
  EXPECT_FALSE(GCoreSystem::MakeDirectory(temp.Wide("a/new")));
  EXPECT_FALSE(GCoreSystem::DeleteDirectory(temp.Wide("a/x")));
  EXPECT_NE(log.Text().find(L"[CRITICAL]: "), std::wstring::npos);
  EXPECT_FALSE(GCoreSystem::IsFileExist(temp.Wide("plain.txt/x"))); // missing, no error
}

TEST(GCoreSystem, CopyCreatesOneFolderLevelAndHonoursOverwrite) {
  TempFolder temp;
  std::ofstream(temp.Path() / "source.txt") << "new";
  const std::wstring source = temp.Wide("source.txt");
  const std::wstring target = temp.Wide("out/target.txt");
  EXPECT_TRUE(GCoreSystem::CopyFileTo(source, target, false));
  EXPECT_FALSE(GCoreSystem::CopyFileTo(source, target, false)); // exists
  std::ofstream(temp.Path() / "source.txt") << "newer";
  EXPECT_TRUE(GCoreSystem::CopyFileTo(source, target, true));
  std::ifstream in(temp.Path() / "out" / "target.txt");
  std::string text;
  in >> text;
  EXPECT_EQ(text, "newer");

  LogCapture log;
  EXPECT_FALSE(GCoreSystem::CopyFileTo(source, temp.Wide("a/b/target.txt"), false));
  EXPECT_NE(log.Text().find(L"Create output file path failed: " + temp.Wide("a/b")),
            std::wstring::npos);
  EXPECT_FALSE(GCoreSystem::CopyFileTo(temp.Wide("absent"), temp.Wide("x.txt"), true));
}

TEST(CSystemHelper, MakeDirectoryCreatesEveryLevelWithinItsBuffer) {
  TempFolder temp;
  const std::wstring nested = temp.Wide("a") + L"\\b/c";
  EXPECT_TRUE(CSystemHelper::MakeDirectory(nested));
  EXPECT_TRUE(fs::is_directory(temp.Path() / "a" / "b" / "c"));
  EXPECT_TRUE(CSystemHelper::MakeDirectory(nested)); // again: nothing to do
  EXPECT_TRUE(CSystemHelper::FileExists(temp.Wide("a/b")));
  EXPECT_FALSE(CSystemHelper::FileExists(temp.Wide("a/z")));
  EXPECT_FALSE(CSystemHelper::MakeDirectory(L""));

  // 255 characters with the final separator fit; one more does not.
  const std::wstring base = temp.Wide("") + L"d";
  const std::wstring fits = base + std::wstring(254 - base.size(), L'x');
  EXPECT_TRUE(CSystemHelper::MakeDirectory(fits));
  EXPECT_FALSE(CSystemHelper::MakeDirectory(fits + L"y"));
  EXPECT_FALSE(CSystemHelper::MakeDirectory(std::wstring(4000, L'q')));
  EXPECT_FALSE(fs::exists(fs::path(fits + L"y")));

  std::ofstream(temp.Path() / "plainfile") << "x";
  EXPECT_FALSE(CSystemHelper::MakeDirectory(temp.Wide("plainfile/sub")));
}

TEST(CSystemHelper, TryAllocMemAllocatesOnlyWhatCanBeBacked) {
  EXPECT_TRUE(CSystemHelper::TryAllocMem(0));
  EXPECT_TRUE(CSystemHelper::TryAllocMem(102399));
  EXPECT_TRUE(CSystemHelper::TryAllocMem(4 << 20));
}

TEST(GCoreSystem, LocalTimeAndProcesses) {
  EXPECT_TRUE(std::regex_match(GCoreSystem::GetLocalTimeWString(), std::wregex(L"\\d{8}T\\d{6}")));
  EXPECT_EQ(GCoreSystem::GetParentProcessID(), static_cast<int>(::getppid()));
  EXPECT_EQ(GCoreSystem::GetProcessPath(static_cast<int>(::getpid())),
            fs::canonical("/proc/self/exe").string().substr(0, 259));
  EXPECT_EQ(GCoreSystem::GetProcessPath(-5), "");
  std::wstring current;
  GCoreSystem::CurrentDirectory(current);
  EXPECT_EQ(current, fs::current_path().wstring());
}

} // namespace
} // namespace zrn

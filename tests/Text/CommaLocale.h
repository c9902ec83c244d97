// A process locale whose decimal point is a comma, for tests of number text.
#ifndef ZRN_TESTS_TEXT_COMMALOCALE_H
#define ZRN_TESTS_TEXT_COMMALOCALE_H

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <locale>
#include <string>
#include <unistd.h>

namespace zrn::test {

/// While it lives, the process runs under de_DE.UTF-8 (comma for the point,
/// full stop for grouping), compiled once into a folder under the temporary
/// directory and found through LOCPATH; the previous C and C++ global locales
/// and LOCPATH come back at its end. `Active()` is false when the locale could
/// not be made (no locale sources on the machine).
class CommaLocale {
public:
  CommaLocale() : m_previous(std::setlocale(LC_ALL, nullptr)) {
    char const* const path = std::getenv("LOCPATH");
    m_hadPath = path != nullptr;
    if (m_hadPath)
      m_previousPath = path;
    const std::string folder = Compiled();
    if (folder.empty())
      return;
    setenv("LOCPATH", folder.c_str(), 1);
    if (std::setlocale(LC_ALL, kName) == nullptr)
      return;
    m_previousGlobal = std::locale::global(std::locale(kName));
    m_active = true;
  }
  CommaLocale(CommaLocale const&) = delete;
  CommaLocale& operator=(CommaLocale const&) = delete;
  ~CommaLocale() {
    if (m_active)
      std::locale::global(m_previousGlobal);
    std::setlocale(LC_ALL, m_previous.c_str());
    if (m_hadPath)
      setenv("LOCPATH", m_previousPath.c_str(), 1);
    else
      unsetenv("LOCPATH");
  }

  bool Active() const { return m_active; }

private:
  static constexpr char kName[] = "de_DE.UTF-8";

  // The folder holding the compiled locale; made once for all test
  // processes, under a private name first so that parallel ones never see
  // half of it.
  static std::string Compiled() {
    namespace fs = std::filesystem;
    const fs::path folder = fs::temp_directory_path() / "zrn-test-locales";
    if (fs::exists(folder / kName))
      return folder.string();
    std::error_code error;
    fs::create_directories(folder, error);
    const fs::path scratch = folder / ("tmp-" + std::to_string(getpid()));
    const std::string command = "localedef -i de_DE -f UTF-8 " + scratch.string() + " 2>/dev/null";
    if (std::system(command.c_str()) != 0 && !fs::exists(scratch / "LC_NUMERIC")) {
      fs::remove_all(scratch, error);
      return {};
    }
    fs::rename(scratch, folder / kName, error);
    if (error)
      fs::remove_all(scratch, error);
    return folder.string();
  }

  std::string m_previous;
  std::string m_previousPath;
  bool m_hadPath = false;
  bool m_active = false;
  std::locale m_previousGlobal;
};

} // namespace zrn::test

/// The C library keeps, and never frees, the search path it builds from
/// LOCPATH when it loads a locale; the leak checker is told to expect it.
extern "C" __attribute__((weak, used)) const char* __lsan_default_suppressions() {
  return "leak:__argz_add_sep\n";
}

/// Starts a CommaLocale named `name`, skipping the test when the machine
/// cannot make it.
#define ZRN_WITH_COMMA_LOCALE(name)                                                                \
  const zrn::test::CommaLocale name;                                                               \
  if (!name.Active())                                                                              \
  GTEST_SKIP() << "de_DE.UTF-8 could not be compiled with localedef"

#endif

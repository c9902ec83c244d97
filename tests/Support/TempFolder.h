// A fresh temporary folder for the lifetime of the object, removed with all
// its contents afterwards; optionally the current folder meanwhile.
#ifndef ZRN_TESTS_SUPPORT_TEMPFOLDER_H
#define ZRN_TESTS_SUPPORT_TEMPFOLDER_H

#include <filesystem>
#include <random>
#include <string>

namespace zrn::test {

class TempFolder {
public:
  enum Mode { Stay, EnterIt };

  explicit TempFolder(Mode mode = Stay) {
    std::random_device seed;
    m_path = std::filesystem::temp_directory_path() /
             ("zrn-test-" + std::to_string(seed()) + std::to_string(seed()));
    std::filesystem::create_directories(m_path);
    if (mode == EnterIt) {
      m_previous = std::filesystem::current_path();
      std::filesystem::current_path(m_path);
    }
  }
  ~TempFolder() {
    std::error_code ignored;
    if (!m_previous.empty())
      std::filesystem::current_path(m_previous, ignored);
    std::filesystem::remove_all(m_path, ignored);
  }
  TempFolder(TempFolder const&) = delete;
  TempFolder& operator=(TempFolder const&) = delete;

  std::filesystem::path const& Path() const { return m_path; }
  /// The folder's path joined with `name`, as wide text.
  std::wstring Wide(std::string const& name = "") const { return (m_path / name).wstring(); }

private:
  std::filesystem::path m_path;
  std::filesystem::path m_previous;
};

} // namespace zrn::test

#endif

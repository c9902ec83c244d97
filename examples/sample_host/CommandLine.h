// The sample host's command line.
#ifndef ZRN_EXAMPLES_SAMPLE_HOST_COMMANDLINE_H
#define ZRN_EXAMPLES_SAMPLE_HOST_COMMANDLINE_H

#include <cstddef>
#include <filesystem>
#include <string>

/// What the user asked for.
struct SOptions {
  /// The folder every output goes to.
  std::filesystem::path out;
  /// The store's path.
  std::filesystem::path db;
  /// How many entities the model should have, at least.
  std::size_t entities = 32;
  /// --help: print the usage and stop.
  bool help = false;
};

/// The fewest and the most entities --entities accepts.
constexpr std::size_t kMinEntities = 7;
constexpr std::size_t kMaxEntities = 5'000'000;

/// Reads the arguments into `options`; `defaultOut` is the output folder
/// when --out is not given. False, with `error` saying what is wrong, for an
/// unknown option, a missing value or a value out of range.
bool ParseCommandLine(int argc, char const* const* argv, std::filesystem::path const& defaultOut,
                      SOptions& options, std::string& error);

/// The usage text.
std::string Usage();

#endif

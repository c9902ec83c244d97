#include "CommandLine.h"

#include <charconv>
#include <string_view>

namespace {

bool ParseCount(std::string_view text, std::size_t& count, std::string& error) {
  auto const [end, status] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (status != std::errc() || end != text.data() + text.size() || count < kMinEntities ||
      count > kMaxEntities) {
    error = "--entities needs a whole number from " + std::to_string(kMinEntities) + " to " +
            std::to_string(kMaxEntities) + ", not '" + std::string(text) + "'";
    return false;
  }
  return true;
}

// Splits "--name=value" into its two halves; "--name" keeps an empty value.
std::string_view SplitValue(std::string_view& argument, bool& hasValue) {
  std::size_t const equals = argument.find('=');
  hasValue = equals != std::string_view::npos;
  std::string_view const value = hasValue ? argument.substr(equals + 1) : std::string_view();
  argument = argument.substr(0, equals);
  return value;
}

} // namespace

bool ParseCommandLine(int argc, char const* const* argv, std::filesystem::path const& defaultOut,
                      SOptions& options, std::string& error) {
  bool dbGiven = false;
  options.out = defaultOut;
  for (int i = 1; i < argc; ++i) {
    std::string_view name = argv[i];
    bool hasValue = false;
    std::string_view value = SplitValue(name, hasValue);
    if (name == "--help" || name == "-h") {
      options.help = true;
      continue;
    }
    if (name != "--out" && name != "--db" && name != "--entities") {
      error = "unknown argument '" + std::string(argv[i]) + "'";
      return false;
    }
    if (!hasValue && i + 1 < argc)
      value = argv[++i], hasValue = true;
    if (!hasValue || value.empty()) {
      error = std::string(name) + " needs a value";
      return false;
    }
    if (name == "--out")
      options.out = value;
    else if (name == "--db")
      options.db = value, dbGiven = true;
    else if (!ParseCount(value, options.entities, error))
      return false;
  }
  if (!dbGiven)
    options.db = options.out / "model.db";
  return true;
}

std::string Usage() {
  return "Usage: sample_host [--out DIR] [--db PATH] [--entities N] [--help]\n"
         "\n"
         "Builds a parametric steel frame, stores it in an SQLite project store,\n"
         "reloads it, changes the bay width, regenerates, saves only what changed,\n"
         "reloads again and checks the values. Writes the store, the log, the\n"
         "reports and the model's dependency graph into DIR and bundles them into\n"
         "DIR/sample_host.zip.\n"
         "\n"
         "  --out DIR      output folder (default: sample_host_out in the build folder)\n"
         "  --db PATH      the store's file (default: DIR/model.db); an existing file\n"
         "                 is replaced only when it is an SQLite database; a\n"
         "                 postgresql://... URL stores the model on that server\n"
         "  --entities N   size of the model, at least N entities (default 32, " +
         std::to_string(kMinEntities) + " to " + std::to_string(kMaxEntities) +
         ")\n"
         "  --help         this text\n";
}

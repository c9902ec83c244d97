// zrn-inspect: prints the structure of an archive stream.
//
// Exit codes: 0 the whole stream was read, 1 reading stopped early on bytes
// that cannot be read (the output still shows what was read), 2 a usage or
// I/O error.
#include "InspectPrinter.h"
#include "StoreBlob.h"

#include <zrn/IO/ArchiveReader.h>
#include <zrn/IO/FileIOStream.h>
#include <zrn/Text/StringTrans.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace zrn;
using namespace zrn::inspect;

constexpr int kComplete = 0;
constexpr int kStoppedEarly = 1;
constexpr int kUsageOrIo = 2;

constexpr char kUsage[] =
    "Usage: zrn-inspect [OPTIONS] FILE\n"
    "       zrn-inspect [OPTIONS] --db STORE (--entity ID | --project)\n"
    "\n"
    "Prints the objects, blocks and data of an archive stream as an indented tree.\n"
    "\n"
    "  --db STORE    read from a project store instead of a file (opened read-only)\n"
    "  --entity ID   the archived data of entity ID (its row of EntityTable)\n"
    "  --project     the project's own record (its row of ProjectTable)\n"
    "  --json        print the tree as JSON\n"
    "  --full        show every byte of leaf data\n"
    "  --width N     bytes of leaf data shown per item (default 16)\n"
    "  --help        show this text\n"
    "\n"
    "Exit status: 0 read whole, 1 stopped early on unreadable bytes,\n"
    "2 usage or I/O error.\n";

struct sArguments {
  std::string file;
  std::string store;
  std::optional<long long> entity;
  bool project = false;
  bool json = false;
  bool help = false;
  sPrintOptions print;
};

int Usage(std::string const& why) {
  std::fprintf(stderr, "zrn-inspect: %s\nTry 'zrn-inspect --help'.\n", why.c_str());
  return kUsageOrIo;
}

int IoError(std::string const& why) {
  std::fprintf(stderr, "zrn-inspect: %s\n", why.c_str());
  return kUsageOrIo;
}

template <class T> bool Number(char const* text, T& value) {
  const std::string_view view(text);
  const auto done = std::from_chars(view.data(), view.data() + view.size(), value);
  return done.ec == std::errc() && done.ptr == view.data() + view.size();
}

// Fills `args`; an error text when the command line is not usable.
std::optional<std::string> Parse(int argc, char** argv, sArguments& args) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--help" || arg == "-h") {
      args.help = true;
    } else if (arg == "--json") {
      args.json = true;
    } else if (arg == "--full") {
      args.print.full = true;
    } else if (arg == "--project") {
      args.project = true;
    } else if (arg == "--width") {
      if (!hasValue || !Number(argv[++i], args.print.width))
        return "--width needs a number of bytes";
    } else if (arg == "--db") {
      if (!hasValue)
        return "--db needs the path of a store";
      args.store = argv[++i];
    } else if (arg == "--entity") {
      long long id = 0;
      if (!hasValue || !Number(argv[++i], id))
        return "--entity needs an entity id";
      args.entity = id;
    } else if (arg.starts_with("-") && arg.size() > 1) {
      return "unknown option " + std::string(arg);
    } else if (!args.file.empty()) {
      return "more than one file given";
    } else {
      args.file = arg;
    }
  }
  if (args.help)
    return std::nullopt;
  if (args.store.empty()) {
    if (args.entity || args.project)
      return "--entity and --project need --db STORE";
    if (args.file.empty())
      return "no file given";
  } else {
    if (!args.file.empty())
      return "give either a file or --db STORE, not both";
    if (args.entity.has_value() == args.project)
      return "--db needs one of --entity ID and --project";
  }
  return std::nullopt;
}

// Walks `device` and prints the tree; the exit code.
int Inspect(GIODevice& device, sArguments const& args, EArchiveRoot root) {
  COutput out(stdout);
  CArchiveReader reader;
  reader.SetRoot(root);
  // Text values (names, strings) are shown up to a readable length even when
  // leaf data is cut narrower; the printers cut leaf data to the width.
  reader.SetLeafLimit(args.print.full ? ~0ULL
                                      : std::max<unsigned long long>(args.print.width, 256));
  bool complete = false;
  if (args.json) {
    CJsonPrinter printer(out, args.print);
    printer.Begin();
    complete = reader.Read(device, printer);
    printer.End(reader.StreamSize(), complete, reader.StoppedAt(), reader.Error());
  } else {
    CTextPrinter printer(out, args.print);
    complete = reader.Read(device, printer);
    if (!complete)
      printer.Stopped(reader.StoppedAt(), reader.Error());
  }
  if (!out.Flush())
    return IoError("cannot write the output");
  if (complete)
    return kComplete;
  std::fprintf(stderr, "zrn-inspect: stopped at offset %lld: %s\n", reader.StoppedAt(),
               reader.Error().c_str());
  return kStoppedEarly;
}

int InspectFile(sArguments const& args) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(args.file, error))
    return IoError(
        "cannot read " + args.file + ": " +
        (std::filesystem::exists(args.file, error) ? "not a regular file" : "no such file"));
  const std::unique_ptr<wchar_t[]> path(GStdStringTrans::Utf8ToUnicode(args.file.c_str()));
  GFileIOStream file(false, path ? path.get() : L"", false);
  if (!file.IsGood())
    return IoError("cannot open " + args.file);
  return Inspect(file, args, EArchiveRoot::Stream);
}

int InspectStore(sArguments const& args) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(args.store, error))
    return IoError("cannot read the store " + args.store + ": no such file");
  CStoreBlob blob;
  long long id = args.entity.value_or(0);
  const bool opened = blob.OpenStore(args.store) && (args.entity || blob.ProjectId(id)) &&
                      blob.OpenRow(args.project ? "ProjectTable" : "EntityTable", id);
  if (!opened)
    return IoError(args.store + ": " + blob.Error());
  return Inspect(blob, args, args.project ? EArchiveRoot::ProjectRecord : EArchiveRoot::Stream);
}

} // namespace

int main(int argc, char** argv) {
  sArguments args;
  if (const auto problem = Parse(argc, argv, args))
    return Usage(*problem);
  if (args.help) {
    std::fputs(kUsage, stdout);
    return kComplete;
  }
  return args.store.empty() ? InspectFile(args) : InspectStore(args);
}

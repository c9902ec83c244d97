// A tour of single zrn APIs. It configures the logger and writes at
// several levels to a log file and to standard output, reports errors through
// the per-thread error code, stores a small model in an archive file and
// reads it back, converts values and text, and bundles its output files into
// one zip archive. Each phase is timed and profiled; the profiler's result
// table and a short table of the process's memory end the run.
//
// Usage: tour [log-file]   (default: tour.log; the model is
// stored beside it with the extension .model, the bundle with .zip)
#include <zrn/zrn.h>

#include "Demos.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

// A host model class: a named part with points, archived as an object of
// version 1 with one block per field.
class CPart : public zrn::IBase {
public:
  std::wstring name;
  std::vector<double> points;

  bool Serialize(zrn::GDbArchive& ar) override {
    zrn::GTaggedObject object(ar, typeid(*this));
    if (!ar.IsLoading())
      return object.Write(1, [&] {
        object.Block(kNameBlock, [&] { ar << name; });
        object.Block(kPointsBlock, [&] { WritePoints(ar); });
      });
    return object.Read(1, [&](unsigned char tag) { // other tags: newer data, skipped
      if (tag == kNameBlock)
        ar >> name;
      else if (tag == kPointsBlock)
        ReadPoints(ar);
      return tag == kNameBlock || tag == kPointsBlock;
    });
  }

private:
  enum : unsigned char { kNameBlock = 1, kPointsBlock = 2 };

  void WritePoints(zrn::GDbArchive& ar) const {
    ar << static_cast<int>(points.size());
    for (double point : points)
      ar << point;
  }

  void ReadPoints(zrn::GDbArchive& ar) {
    int count = 0;
    ar >> count;
    points.assign(static_cast<std::size_t>(std::max(count, 0)), 0.0);
    for (double& point : points)
      ar >> point;
  }
};

void ConfigureLog(zrn::CLogManager& log, std::wstring const& path) {
  log.SetDebuggerOutput(false);
  log.SetTimeStamp(true);
  log.ShowLineNumber(true);
  log.AppendOuputStream(&std::wcout);
  if (!log.SetOutputFilePath(path))
    std::wcout << L"could not open the log file " << path << L'\n';
}

void LogAtEveryLevel(zrn::CLogManager& log) {
  log.Log(L"sample host started", zrn::LOG_LEVEL_NORMAL);
  log.Log(std::string("narrow text is widened byte by byte"), zrn::LOG_LEVEL_NORMAL);
  log.Log(L"trivial details are shown at the default level", zrn::LOG_LEVEL_TRIVIAL);
  log.Log(L"debug lines are dropped at the default level", zrn::LOG_LEVEL_DEBUG);

  log.PushLogLevel(zrn::LOG_LEVEL_DEBUG);
  log.Log(L"inside a verbose stretch, debug lines are written", zrn::LOG_LEVEL_DEBUG);
  log.PopLogLevel();

  log.PushLogLevel(zrn::LOG_LEVEL_CRITICAL);
  log.Log(L"this normal line is filtered out", zrn::LOG_LEVEL_NORMAL);
  log.Log(L"only critical lines pass now", zrn::LOG_LEVEL_CRITICAL);
  log.PopLogLevel();
}

void ReportAnError() {
  zrn::ErrorCode::Report(zrn::err_bad_argument, 2);
  std::wcout << L"error " << zrn::GetError() << L": " << zrn::GetErrorMessage() << L'\n';

  zrn::SetErrorMessage(100, "could not open '%s' (%d tries)");
  zrn::ErrorCode::Report(100, "model.dat", 3);
  std::wcout << L"error " << zrn::GetError() << L": " << zrn_err() << L'\n';

  try {
    throw zrn::CErrorException(L"the sample host gave up", "examples\\sample_host", __LINE__);
  } catch (zrn::CErrorException const& e) {
    std::wcout << L"caught: " << e.GetDescription() << L'\n';
  }
  zrn::ErrorCode::Clear();
}

void StoreAndLoadModel(zrn::CLogManager& log, std::wstring const& path) {
  CPart part;
  part.name = L"bracket \u00e9";
  part.points = {0.0, 1.5, 3.25};
  {
    zrn::GFileIOStream file(true, path, false);
    zrn::GDbArchiveImpl ar(&file);
    ar << part; // the archive's direction decides: this stores
    ar << std::string("end of model");
  } // the file is written in one pass as the device closes

  CPart loaded;
  std::string trailer;
  zrn::GFileIOStream file(false, path, false);
  zrn::GDbArchiveImpl ar(&file);
  ar >> loaded;
  ar >> trailer;
  std::wcout << L"loaded part '" << loaded.name << L"' with " << loaded.points.size()
             << L" points, last " << loaded.points.back() << L"; trailer '"
             << std::wstring(trailer.begin(), trailer.end()) << L"'\n";
  log.Log(L"model stored and loaded: " + path, zrn::LOG_LEVEL_NORMAL);
}

void ConvertValuesAndText() {
  const zrn::CVariant price(1234.5678);
  const zrn::CVariant count("42 parts");
  std::wcout << L"variant " << price.toWString() << L" as int: " << price.toInt()
             << L"; text '42 parts' as int: " << count.toInt() << L'\n';

  const std::string gbk = zrn::GStdStringTrans::WstringToString(L"\u4e2d\u6587");
  std::wcout << L"U+4E2D U+6587 in code page 936 take " << gbk.size() << L" bytes, back: "
             << zrn::GStdStringTrans::StringToWString(gbk) << L'\n';

  double x = 0, y = 0, z = 0;
  if (zrn::CInputParser::explainXYZ(L"\uff11\uff0c2.5,-3", &x, &y, &z))
    std::wcout << L"typed coordinates: " << x << L", " << y << L", " << z << L'\n';

  const std::string encoded = base64_encode(reinterpret_cast<unsigned char const*>("zrn"), 3);
  std::wcout << L"base64 of 'zrn': " << std::wstring(encoded.begin(), encoded.end()) << L'\n';
}

// Runs one phase of the sample as a profiled section and prints how long it
// took.
template <class Phase> void RunPhase(wchar_t const* name, Phase phase) {
  zrn::CStopwatch watch;
  watch.Start();
  {
    zrn::CProfile section(name);
    phase();
  }
  watch.Stop();
  std::wcout << L"[" << name << L": " << watch.GetElapsedMilliseconds() << L" ms]\n";
}

} // namespace

int main(int argc, char** argv) {
  std::locale::global(std::locale("C.UTF-8"));
  std::wcout.imbue(std::locale());
  const std::string path = argc > 1 ? argv[1] : "tour.log";
  const std::wstring widePath(path.begin(), path.end());
  auto& log = zrn::CSingleton<zrn::CLogManager>::GetInstance();
  ConfigureLog(log, widePath);
  {
    zrn::CProfile run(L"sample host"); // the phases below are its sections
    RunPhase(L"logging", [&] { LogAtEveryLevel(log); });
    RunPhase(L"error reporting", ReportAnError);
    RunPhase(L"model archive", [&] { StoreAndLoadModel(log, widePath + L".model"); });
    RunPhase(L"conversions", ConvertValuesAndText);
    RunPhase(L"regeneration", RegenerateParametricModel);
    RunPhase(L"project properties", [&] { ArchiveProjectProperties(widePath + L".properties"); });
  }
  log.Log(L"sample host finished", zrn::LOG_LEVEL_NORMAL);
  zrn::CSingleton<zrn::CProfileManager>::GetInstance().DumpProfile(std::wcout);
  zrn::GCoreSystem::DumpSimpleProcessMemory(std::wcout);

  log.RemoveOuputStream(&std::wcout);
  log.SetOutputFilePath(L"");
  std::wcout << L"log file written to " << widePath << L'\n';
  BundleOutputs(path + ".zip", {{"sample_host.log", path}, {"model.archive", path + ".model"}});
  return 0;
}

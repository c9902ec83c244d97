#include "SampleRun.h"

#include "FrameBuilder.h"
#include "GraphWriter.h"
#include "Progress.h"
#include "Store.h"

#include <zrn/IO/DataIOFacade.h>
#include <zrn/Profile/GLog/LogManager.h>
#include <zrn/Profile/GLog/Singleton.h>
#include <zrn/Profile/Profiler.h>
#include <zrn/System/Stopwatch.h>

#include <iomanip>
#include <iostream>
#include <sstream>
#include <vector>

namespace {

/// How many objects an order lists before it sums up the rest.
constexpr std::size_t kListed = 40;

// Prints a line of the story to standard output and to the log.
void Say(std::wstring const& line) {
  std::wcout << line << L'\n';
  zrn::CSingleton<zrn::CLogManager>::GetInstance().Log(line, zrn::LOG_LEVEL_NORMAL);
}

template <class Step> bool RunPhase(wchar_t const* name, Step step) {
  zrn::CStopwatch watch;
  watch.Start();
  bool ok = false;
  {
    CPhaseClock clock(name);
    zrn::CProfile section(name);
    ok = step();
  }
  watch.Stop();
  std::wcout << L"  [" << name << L": " << watch.GetElapsedMilliseconds() << L" ms]\n";
  return ok;
}

// Up to 12 significant digits: whole metres and kilograms of a large frame
// stay whole numbers.
std::wstring Number(double value) {
  std::wostringstream text;
  text << std::setprecision(12) << value;
  return text.str();
}

std::wstring Kilobytes(std::uintmax_t bytes) {
  return std::to_wstring((bytes + 1023) / 1024) + L" KB";
}

std::wstring Describe(SStoreSize const& size) {
  std::wstring text = L"store " + Kilobytes(size.file);
  return size.log ? text + L" + " + Kilobytes(size.log) + L" of write-ahead log" : text;
}

// "#6 beam, #7 brace, ..." in the order given, numbered when `numbered`.
std::wstring ListObjects(CFrameModel& model, std::vector<unsigned long long> const& ids,
                         bool numbered) {
  std::wostringstream text;
  for (std::size_t i = 0; i < ids.size() && i < kListed; ++i) {
    text << (i ? L", " : L"");
    if (numbered)
      text << i + 1 << L". ";
    text << L'#' << ids[i] << L' ' << model.Find(ids[i])->TypeName();
  }
  if (ids.size() > kListed)
    text << L", ... and " << ids.size() - kListed << L" more";
  return text.str();
}

std::size_t CountInMemory(CFrameModel& model) {
  std::size_t count = 0;
  for (CFrameObject* object : model.Objects())
    count += object->HasObjectFlag(zrn::EGOBJECT_FLAG_SWAPPED) ? 0 : 1;
  return count;
}

} // namespace

CSampleRun::CSampleRun(SOptions const& options) : m_options(options) {
  RegisterFrameTypes(m_facade.Types());
  m_facade.SetProgress(
      [](char const*, std::size_t done, std::size_t total) { CPhaseClock::Report(done, total); });
  zrn::SetIOFacade(&m_facade);
}

CSampleRun::~CSampleRun() {
  Drop(); // the entities go while the facade that stores them is installed
  zrn::SetIOFacade(nullptr);
}

bool CSampleRun::Run() {
  zrn::CProfile run(L"sample host"); // the phases are its sections
  return RunPhase(L"build", [this] { return Build(); }) &&
         RunPhase(L"first regeneration", [this] { return RegenerateAll(); }) &&
         RunPhase(L"save", [this] { return Save(L"Saved the model"); }) &&
         RunPhase(L"reload", [this] { return Reload(); }) && Change() &&
         RunPhase(L"regenerate", [this] { return Regenerate(); }) &&
         RunPhase(L"draw", [this] { return Draw(); }) &&
         RunPhase(L"save changes", [this] { return SaveChanges(); }) &&
         RunPhase(L"reload and check", [this] { return ReloadAndCheck(); });
}

bool CSampleRun::Build() {
  std::size_t const bays = BaysFor(m_options.entities);
  m_project = std::make_unique<zrn::IBaseProject>();
  BuildFrame(*m_project, bays);
  m_model = std::make_unique<CFrameModel>();
  if (!m_model->Attach(*m_project, m_error))
    return false;
  Say(L"Built a steel frame of " + std::to_wstring(bays) + L" bays: " +
      std::to_wstring(m_model->Objects().size() + 1) + L" entities (the project, the parameters, " +
      std::to_wstring(bays) + L" bays with " + std::to_wstring(bays * kMembersPerBay) +
      L" members, the totals).");
  return true;
}

bool CSampleRun::RegenerateAll() {
  m_model->Parameters().MarkAll();
  zrn::GRegenContext context;
  m_model->Regenerate(context);
  Say(L"First regeneration computed " + std::to_wstring(m_model->RunOrder().size()) +
      L" objects from the parameters; span " + Number(m_model->Totals().Value(CTotals::kSpan)) +
      L" m.");
  return TotalsAreRight(*m_model, m_error);
}

bool CSampleRun::Save(wchar_t const* what) {
  if (!SaveToStore(*m_project, m_options.db, m_facade, m_error))
    return false;
  std::wstring const size =
      IsServerStore(m_options.db) ? L"" : L", " + Describe(StoreSize(m_options.db));
  Say(std::wstring(what) + L" to " + ShownStore(m_options.db) + L": " +
      std::to_wstring(m_facade.LastSaveRowCount()) + L" rows written" + size + L".");
  return true;
}

bool CSampleRun::Reload() {
  if (!Load(false))
    return false;
  Say(L"Reloaded the model into a fresh project: " +
      std::to_wstring(m_model->Objects().size() + 1) +
      L" entities, their values left in the store until used.");
  return true;
}

bool CSampleRun::Change() {
  CParameters& parameters = m_model->Parameters();
  double const before = parameters.Value(CParameters::kBayWidth);
  parameters.SetParameter(CParameters::kBayWidth, 7.5);
  Say(L"Changed bay_width from " + Number(before) + L" m to 7.5 m.");
  return true;
}

bool CSampleRun::Regenerate() {
  zrn::GRegenContext context;
  m_model->Regenerate(context);
  Say(L"Regenerated: " + std::to_wstring(m_model->RunOrder().size()) + L" objects ran, " +
      std::to_wstring(m_model->ChangedCount()) + L" changed; the values of " +
      std::to_wstring(CountInMemory(*m_model)) + L" of " +
      std::to_wstring(m_model->Objects().size()) + L" objects were read from the store.");
  Say(L"  Update order: " + ListObjects(*m_model, m_model->UpdateOrder(), false));
  Say(L"  Regeneration order: " + ListObjects(*m_model, m_model->RunOrder(), true));
  m_snapshot = TakeSnapshot(*m_model);
  return TotalsAreRight(*m_model, m_error);
}

bool CSampleRun::Draw() {
  std::filesystem::path const dot = m_options.out / "model.dot";
  std::size_t const drawn = WriteDependencyGraph(*m_model, dot, m_error);
  if (drawn == 0)
    return false;
  std::wstring line = L"Drew the dependency graph into model.dot: " + std::to_wstring(drawn) +
                      L" of " + std::to_wstring(m_model->Objects().size()) +
                      L" objects, the last regeneration highlighted in run order.";
  Say(line);
  std::string note;
  if (RenderSvg(dot, m_options.out / "model.svg", note))
    Say(L"Rendered it to model.svg with Graphviz.");
  else
    Say(std::wstring(note.begin(), note.end()) + L'.');
  return true;
}

bool CSampleRun::SaveChanges() {
  if (!Save(L"Saved the changes"))
    return false;
  // The parameters changed by hand, and what regeneration changed: no more.
  std::size_t const expected = m_model->ChangedCount() + 1;
  if (m_facade.LastSaveRowCount() == expected) {
    Say(L"  Only the changed parameters and the " + std::to_wstring(m_model->ChangedCount()) +
        L" objects regeneration changed were written.");
    return true;
  }
  m_error = "the save wrote " + std::to_string(m_facade.LastSaveRowCount()) + " rows, but only " +
            std::to_string(expected) + " objects changed";
  return false;
}

bool CSampleRun::ReloadAndCheck() {
  if (!Load(true) || !MatchesSnapshot(*m_model, m_snapshot, m_error) ||
      !TotalsAreRight(*m_model, m_error))
    return false;
  CTotals& totals = m_model->Totals();
  Say(L"Reloaded the model again and checked " + std::to_wstring(m_snapshot.ids.size()) +
      L" objects: every value is what regeneration computed (span " +
      Number(totals.Value(CTotals::kSpan)) + L" m, steel " + Number(totals.Value(CTotals::kMass)) +
      L" kg).");
  return true;
}

bool CSampleRun::Load(bool eager) {
  Drop();
  m_facade.SetEagerLoad(eager);
  m_project = LoadFromStore(m_options.db, m_error);
  if (m_project == nullptr)
    return false;
  m_model = std::make_unique<CFrameModel>();
  return m_model->Attach(*m_project, m_error);
}

void CSampleRun::Drop() {
  m_model.reset();
  m_project.reset(); // closes its store
}

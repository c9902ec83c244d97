// The sample host's run, step by step: build, save, reload, change,
// regenerate, save what changed, reload and check, draw.
#ifndef ZRN_EXAMPLES_SAMPLE_HOST_SAMPLERUN_H
#define ZRN_EXAMPLES_SAMPLE_HOST_SAMPLERUN_H

#include "Check.h"
#include "CommandLine.h"
#include "FrameModel.h"

#include <zrn/Store/StoreFacade.h>

#include <memory>
#include <string>

/// One run over one store. Installs its store facade for its lifetime (and
/// uninstalls it after), so at most one exists at a time. Used by one thread.
class CSampleRun {
public:
  explicit CSampleRun(SOptions const& options);
  ~CSampleRun();
  CSampleRun(CSampleRun const&) = delete;
  CSampleRun& operator=(CSampleRun const&) = delete;

  /// Runs every step, printing what it does; false with Error() saying why
  /// when a step fails.
  bool Run();
  std::string const& Error() const { return m_error; }

private:
  bool Build();
  bool RegenerateAll();
  bool Save(wchar_t const* what);
  bool Reload();
  bool Change();
  bool Regenerate();
  bool Draw();
  bool SaveChanges();
  bool ReloadAndCheck();
  // Loads the store into a fresh project and attaches a model to it.
  bool Load(bool eager);
  void Drop();

  SOptions m_options;
  zrn::GStoreFacade m_facade;
  std::unique_ptr<zrn::IBaseProject> m_project;
  std::unique_ptr<CFrameModel> m_model; // over m_project's tree
  SSnapshot m_snapshot;
  std::string m_error;
};

#endif

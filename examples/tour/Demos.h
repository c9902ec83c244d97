// The parts of the tour that build models on the library.
#ifndef ZRN_EXAMPLES_TOUR_DEMOS_H
#define ZRN_EXAMPLES_TOUR_DEMOS_H

#include <string>
#include <vector>

/// Builds a small parametric model, changes one value, regenerates and
/// prints which objects were updated and regenerated, in order.
void RegenerateParametricModel();

/// Builds a project tree whose entities carry properties, archives the
/// properties to `path` and reads them back.
void ArchiveProjectProperties(std::wstring const& path);

/// A file to bundle and the entry name it takes in the archive.
struct BundledFile {
  std::string entry, path;
};

/// Writes `files` into one zip archive at `zipPath` and lists what the
/// archive holds.
void BundleOutputs(std::string const& zipPath, std::vector<BundledFile> const& files);

#endif

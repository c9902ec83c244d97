// Draws the model: the relation database as a Graphviz graph, rendered to
// SVG when Graphviz is installed.
#ifndef ZRN_EXAMPLES_SAMPLE_HOST_GRAPHWRITER_H
#define ZRN_EXAMPLES_SAMPLE_HOST_GRAPHWRITER_H

#include "FrameModel.h"

#include <cstddef>
#include <filesystem>
#include <string>

/// The most objects a drawing shows; a larger model is drawn from its first
/// objects in id order (the parameters and the first bays).
constexpr std::size_t kMaxDrawnObjects = 120;

/// Writes the dependency graph of `model` to `path`: objects as nodes
/// labelled with their ids and types, an edge from each object to every
/// object that uses it, and the objects of the last pass highlighted (those
/// regenerated numbered in run order). Returns how many objects it drew; 0
/// with `error` set when the file cannot be written.
std::size_t WriteDependencyGraph(CFrameModel& model, std::filesystem::path const& path,
                                 std::string& error);

/// Renders `dot` to `svg` with Graphviz's dot program. False with `note`
/// saying why when dot is not on the PATH or fails.
bool RenderSvg(std::filesystem::path const& dot, std::filesystem::path const& svg,
               std::string& note);

#endif

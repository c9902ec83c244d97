#include "GraphWriter.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <vector>

namespace {

// Quotes `text` for the shell: inside single quotes everything is literal
// but the single quote, which closes, is escaped and reopens.
std::string ShellQuote(std::string const& text) {
  std::string quoted = "'";
  for (char c : text)
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// For each drawn id, its place in the last pass's run order (1-based), 0 when
// it did not run.
std::vector<std::size_t> RunPlaces(CFrameModel const& model, unsigned long long lastDrawn) {
  std::vector<std::size_t> places(lastDrawn + 1, 0);
  std::vector<unsigned long long> const& order = model.RunOrder();
  for (std::size_t i = 0; i < order.size(); ++i)
    if (order[i] <= lastDrawn)
      places[order[i]] = i + 1;
  return places;
}

void WriteNode(std::ofstream& out, CFrameObject& object, std::size_t runPlace, bool updated) {
  std::wstring const type = object.TypeName();
  out << "  n" << object.GetRegenId() << " [label=\"#" << object.GetRegenId() << ' '
      << std::string(type.begin(), type.end());
  if (runPlace > 0)
    out << "\\nrun " << runPlace << "\", style=filled, fillcolor=\"#f6c86b\"";
  else if (updated)
    out << "\\nchanged\", style=filled, fillcolor=\"#8fc1e8\"";
  else
    out << '"';
  out << "];\n";
}

} // namespace

std::size_t WriteDependencyGraph(CFrameModel& model, std::filesystem::path const& path,
                                 std::string& error) {
  std::vector<CFrameObject*> const& objects = model.Objects();
  if (objects.empty()) {
    error = "the model has no objects to draw";
    return 0;
  }
  std::size_t const drawn = std::min(objects.size(), kMaxDrawnObjects);
  unsigned long long const lastDrawn = objects[drawn - 1]->GetRegenId();
  std::vector<std::size_t> const runPlaces = RunPlaces(model, lastDrawn);
  std::vector<bool> updated(lastDrawn + 1, false);
  for (unsigned long long id : model.UpdateOrder())
    if (id <= lastDrawn)
      updated[id] = true;

  std::ofstream out(path);
  out << "// The frame's dependency graph: an arrow leads from an object to each\n"
         "// object that uses its values. Filled: the last regeneration (blue: changed\n"
         "// by the user; orange: regenerated, numbered in run order).\n"
         "digraph frame {\n  node [shape=box, fontname=\"Helvetica\", fontsize=10];\n";
  for (std::size_t i = 0; i < drawn; ++i) {
    unsigned long long const id = objects[i]->GetRegenId();
    WriteNode(out, *objects[i], runPlaces[id], updated[id]);
  }
  for (std::size_t i = 0; i < drawn; ++i) {
    unsigned long long const id = objects[i]->GetRegenId();
    zrn::GRegenObjectRelation* users = model.GetRelationDb()->GetRelations(id);
    if (users == nullptr)
      continue;
    for (auto const& [kind, ids] : *users)
      for (unsigned long long user : ids)
        if (user <= lastDrawn && model.Find(user) != nullptr)
          out << "  n" << id << " -> n" << user << ";\n";
  }
  out << "}\n";
  if (!out.flush()) {
    error = "could not write " + path.string();
    return 0;
  }
  return drawn;
}

bool RenderSvg(std::filesystem::path const& dot, std::filesystem::path const& svg,
               std::string& note) {
  if (std::system("command -v dot >/dev/null 2>&1") != 0) {
    note = "Graphviz's dot is not on the PATH: model.svg not rendered";
    return false;
  }
  std::string const command =
      "dot -Tsvg " + ShellQuote(dot.string()) + " -o " + ShellQuote(svg.string());
  if (std::system(command.c_str()) != 0) {
    note = "dot failed: model.svg not rendered";
    return false;
  }
  return true;
}

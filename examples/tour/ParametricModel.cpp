// A plate whose width drives two holes and a fillet, the fillet also
// depending on the holes: changing the width regenerates everything after
// it, each object once and after everything it depends on.
#include "Demos.h"

#include <zrn/Regen/RegenObject.h>

#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr auto kUses = static_cast<zrn::GRegenObjectRelation::RelationType>(1);

class Model;

class Feature : public zrn::IRegenableObject, public zrn::IRegenStep {
public:
  Feature(Model& model, unsigned long long id, std::wstring name,
          std::vector<unsigned long long> uses)
      : m_model(model), m_id(id), m_name(std::move(name)), m_uses(std::move(uses)) {}

  std::wstring const& Name() const { return m_name; }
  double value = 0;

  unsigned long long GetRegenId() override { return m_id; }
  void CollectRelations(zrn::IRelationContext& context) override {
    for (unsigned long long used : m_uses)
      context.AddRelation(m_id, used, kUses);
  }
  bool OnAtomChanged(zrn::GRegenAtom const& atom) override;
  zrn::IRegenStep* CreateRegenStep(zrn::GRegenAtom const&) override { return this; }
  void OnRemoveObject(zrn::GRemoveObjectContext& context) override { context.MarkRemove(m_id); }
  long long GetStepKey() override { return 1; }
  void Execute(zrn::IRegenableObject*, zrn::GRegenAtom const&) override;

private:
  Model& m_model;
  unsigned long long m_id;
  std::wstring m_name;
  std::vector<unsigned long long> m_uses;
};

class Model : public zrn::IRegenObjectContainer {
public:
  Feature& Add(unsigned long long id, std::wstring name, std::vector<unsigned long long> uses) {
    auto feature = std::make_shared<Feature>(*this, id, std::move(name), std::move(uses));
    zrn::GCollectRelationContext collect(*GetRelationDb());
    feature->CollectRelations(collect);
    return *(m_features[id] = feature);
  }
  Feature& Get(unsigned long long id) { return *m_features.at(id); }
  std::shared_ptr<zrn::IRegenableObject> FindObject(unsigned long long id) override {
    auto const found = m_features.find(id);
    return found == m_features.end() ? nullptr : found->second;
  }
  void DeleteObject(unsigned long long id) override { m_features.erase(id); }

private:
  std::map<unsigned long long, std::shared_ptr<Feature>> m_features;
};

// Whatever it depends on changed, the feature's own value must be rebuilt.
bool Feature::OnAtomChanged(zrn::GRegenAtom const& atom) {
  m_model.MarkAtom(zrn::GRegenAtom(m_id, L"value"));
  return atom.TargetId() == m_id;
}

void Feature::Execute(zrn::IRegenableObject*, zrn::GRegenAtom const&) {
  double const width = m_model.Get(1).value;
  if (m_id == 2 || m_id == 3)
    value = width / 4;
  else if (m_id == 4)
    value = (m_model.Get(2).value + m_model.Get(3).value) / 10;
  std::wcout << L"  regenerate " << m_name << L" -> " << value << L'\n';
}

void PrintIds(Model& model, wchar_t const* what, std::set<unsigned long long> const& ids) {
  std::wcout << L"  " << what << L':';
  wchar_t const* separator = L" ";
  for (unsigned long long id : ids) {
    std::wcout << separator << model.Get(id).Name();
    separator = L", ";
  }
  std::wcout << L'\n';
}

} // namespace

void RegenerateParametricModel() {
  Model model;
  model.Add(1, L"plate", {}).value = 100;
  model.Add(2, L"left hole", {1});
  model.Add(3, L"right hole", {1});
  model.Add(4, L"fillet", {2, 3});

  std::wcout << L"plate width set to 120, regenerating:\n";
  model.Get(1).value = 120;
  model.MarkAtom(zrn::GRegenAtom(1, L"value"));
  zrn::GRegenContext context;
  model.Regenerate(context);
  PrintIds(model, L"updated", context.GetUpdatedIds());
  PrintIds(model, L"regenerated", context.GetRegenedIds());
}

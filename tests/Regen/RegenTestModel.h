// A small host model for regeneration tests: objects with ids that depend on
// other objects, react to changes by marking their own atom, and record
// every callback.
#ifndef ZRN_TESTS_REGEN_REGENTESTMODEL_H
#define ZRN_TESTS_REGEN_REGENTESTMODEL_H

#include <zrn/Regen/RegenObject.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace zrn::test {

using Id = unsigned long long;
using Ids = std::vector<Id>;
using IdSet = std::set<Id>;
constexpr auto kDependsOn = static_cast<GRegenObjectRelation::RelationType>(0);

class Model : public IRegenObjectContainer {
public:
  struct Object : IRegenableObject, IRegenStep {
    Model* model = nullptr;
    Id id = 0;
    Id regenId = 0;
    long long stepKey = 0;
    bool hasStep = true;
    IRegenStep* step = nullptr; // a step of the test's own instead of this object
    std::vector<Id> dependsOn;
    std::vector<Id> removesWith; // ids to delete with this object

    unsigned long long GetRegenId() override { return regenId; }
    void CollectRelations(IRelationContext& context) override {
      for (Id other : dependsOn)
        context.AddRelation(id, other, kDependsOn);
    }
    bool OnAtomChanged(GRegenAtom const& atom) override {
      model->reactions.push_back({id, atom.TargetId()});
      model->MarkAtom(GRegenAtom(id, L"value"));
      return atom.TargetId() == id;
    }
    IRegenStep* CreateRegenStep(GRegenAtom const&) override {
      return step ? step : hasStep ? this : nullptr;
    }
    void OnRemoveObject(GRemoveObjectContext& context) override {
      model->removalCalls.push_back(id);
      if (context.GetTargetId() != id)
        return;
      context.MarkRemove(id);
      for (Id other : removesWith)
        context.MarkRemove(other);
    }
    long long GetStepKey() override { return stepKey; }
    void Execute(IRegenableObject* object, GRegenAtom const&) override {
      model->executed.push_back(static_cast<Object*>(object)->id);
    }
  };

  /// Adds an object and records its relations in the database.
  Object& Add(Id id, std::vector<Id> dependsOn = {}) {
    auto object = std::make_shared<Object>();
    object->model = this;
    object->id = object->regenId = id;
    object->dependsOn = std::move(dependsOn);
    GCollectRelationContext collect(*GetRelationDb());
    object->CollectRelations(collect);
    return *(objects[id] = std::move(object));
  }
  void Mark(Id id) { MarkAtom(GRegenAtom(id, L"value")); }

  std::shared_ptr<IRegenableObject> FindObject(unsigned long long id) override {
    auto const found = objects.find(id);
    return found == objects.end() ? nullptr : found->second;
  }
  void DeleteObject(unsigned long long id) override {
    deleted.push_back(id);
    objects.erase(id);
  }

  std::map<Id, std::shared_ptr<Object>> objects;
  std::vector<std::pair<Id, Id>> reactions; // (object, atom target)
  std::vector<Id> executed;
  std::vector<Id> removalCalls;
  std::vector<Id> deleted;
};

} // namespace zrn::test

#endif

#include <zrn/Regen/RegenEngine.h>
#include <zrn/Regen/RegenObject.h>

#include "Regen/AtomTree.h"
#include "Regen/StepPlan.h"

#include <utility>

namespace zrn {

IRegenableObject::~IRegenableObject() = default;
IRegenStep::~IRegenStep() = default;

IRegenObjectContainer::IRegenObjectContainer()
    : m_pRelationDb(new GRegenObjectRelationDb), m_pEngine(new GRegenEngine(this)) {}

IRegenObjectContainer::~IRegenObjectContainer() {
  delete m_pEngine;
  delete m_pRelationDb;
}

void IRegenObjectContainer::Regenerate(GRegenContext& context) { m_pEngine->Regenerate(context); }
void IRegenObjectContainer::MarkAtom(GRegenAtom const& atom) { m_pEngine->MarkAtom(atom); }
void IRegenObjectContainer::RemoveObject(unsigned long long id) { m_pEngine->RemoveObject(id); }

GRegenEngine::GRegenEngine(IRegenObjectContainer* container)
    : m_pAtoms(std::make_unique<AtomTrees>(*container)), m_pContainer(container) {}

GRegenEngine::~GRegenEngine() = default;

void GRegenEngine::MarkAtom(GRegenAtom const& atom) {
  if (m_bExecuting)
    return;
  if (m_bPropagating) {
    m_vecPending.push_back(atom);
    return;
  }
  std::size_t const hash = HashAtom(atom);
  if (m_pAtoms->rootAtoms.Find(HashedAtom{hash, &atom}))
    return;
  m_pAtoms->rootAtoms.Set(m_pAtoms->AddChild(nullptr, atom, hash));
}

namespace {

// Clears the engine's pass state however the pass ends, so that a callback
// that throws does not leave the engine believing a pass is still running.
template <class F> class ScopeExit {
public:
  explicit ScopeExit(F f) : m_f(std::move(f)) {}
  ScopeExit(ScopeExit const&) = delete;
  ScopeExit& operator=(ScopeExit const&) = delete;
  ~ScopeExit() { m_f(); }

private:
  F m_f;
};

} // namespace

void GRegenEngine::Regenerate(GRegenContext& context) {
  if (m_bPropagating || m_bExecuting)
    return;
  ScopeExit endPass([this] { EndPass(); });
  m_bPropagating = true;
  Propagate(context);
  m_bPropagating = false;
  m_vecPending.clear();
  RunSteps(context);
}

void GRegenEngine::EndPass() {
  m_bPropagating = m_bExecuting = false;
  m_pAtoms->Clear();
  m_vecPending.clear();
}

// Depth first over the atom trees without recursion. The atoms of the
// current path are found through a hash index, so the test that breaks
// cycles costs the same at any depth.
void GRegenEngine::Propagate(GRegenContext& context) {
  AtomIndex& path = m_pAtoms->path;
  path.Clear();
  std::vector<AtomTrees::Frame>& stack = m_pAtoms->stack;
  stack.assign(1, {m_pAtoms->firstRoot, nullptr});
  while (!stack.empty()) {
    GRegenAtomNode* node = stack.back().next;
    if (!node) {
      if (stack.back().owner)
        stack.back().owner->onPath = false;
      stack.pop_back();
      continue;
    }
    stack.back().next = node->next;
    node->onPath = true;
    path.Set(node);
    if (HandleAtom(*node, context) && node->firstChild)
      stack.push_back({node->firstChild, node});
    else
      node->onPath = false;
  }
}

bool GRegenEngine::HandleAtom(GRegenAtomNode& node, GRegenContext& context) {
  unsigned long long const target = node.atom.TargetId();
  if (m_setRemoved.contains(target))
    return false;
  std::shared_ptr<IRegenableObject> object = m_pContainer->FindObject(target);
  if (!object)
    return false;
  if (object->OnAtomChanged(node.atom))
    context.MarkUpdated(target);
  object.reset();
  NotifyDependents(node.atom, context);
  AttachPending(node);
  return true;
}

namespace {

bool StillDependsOn(IRegenableObject& dependent, unsigned long long target) {
  GQueryRelationContext query;
  dependent.CollectRelations(query);
  return query.IsIdExist(target);
}

} // namespace

// The dependents are copied out first: callbacks may change the database.
// Passes do not nest, so one buffer serves every node.
void GRegenEngine::NotifyDependents(GRegenAtom const& atom, GRegenContext& context) {
  GRegenObjectRelationDb& db = *m_pContainer->GetRelationDb();
  unsigned long long const target = atom.TargetId();
  GRegenObjectRelation const* entry = db.GetRelations(target);
  if (!entry)
    return;
  auto& dependents = m_pAtoms->dependents;
  dependents.clear();
  for (auto const& [kind, ids] : *entry)
    for (unsigned long long id : ids)
      dependents.emplace_back(kind, id);

  GRegenObjectRelation::KindMap stale;
  for (auto const& [kind, id] : dependents) {
    std::shared_ptr<IRegenableObject> dependent = m_pContainer->FindObject(id);
    if (!dependent || !StillDependsOn(*dependent, target))
      stale[kind].insert(id);
    else if (dependent->OnAtomChanged(atom))
      context.MarkUpdated(target);
  }
  if (!stale.empty())
    if (GRegenObjectRelation* current = db.GetRelations(target))
      current->Remove(stale);
}

// Atoms marked while a node was handled become its children, unless equal to
// the node's atom or an ancestor's.
void GRegenEngine::AttachPending(GRegenAtomNode& node) {
  for (GRegenAtom& atom : m_vecPending) {
    std::size_t const hash = atom.IsEqual(node.atom) ? node.hash : HashAtom(atom);
    GRegenAtomNode const* equal = m_pAtoms->path.Find(HashedAtom{hash, &atom});
    if (!equal || !equal->onPath)
      m_pAtoms->AddChild(&node, std::move(atom), hash);
  }
  m_vecPending.clear();
}

void GRegenEngine::RunSteps(GRegenContext& context) {
  m_bExecuting = true;
  GRegenStepPlan& plan = m_pAtoms->plan;
  plan.BuildForest(m_pAtoms->firstRoot, m_pAtoms->pool.size());
  plan.PlaceAll();
  plan.Execute(context);
  EndPass();
  RefreshRelations(context);
  for (unsigned long long id : m_setRemoved)
    context.MarkDelete(id);
  m_setRemoved.clear();
}

// Relations reported now are added; those that disappeared are pruned when
// propagation next follows them.
void GRegenEngine::RefreshRelations(GRegenContext& context) {
  GCollectRelationContext collect(*m_pContainer->GetRelationDb());
  for (unsigned long long id : context.GetUpdatedIds()) {
    if (m_setRemoved.contains(id))
      continue;
    if (std::shared_ptr<IRegenableObject> object = m_pContainer->FindObject(id))
      object->CollectRelations(collect);
  }
}

void GRegenEngine::RemoveObject(unsigned long long id) {
  if (m_setRemoved.contains(id))
    return;
  std::shared_ptr<IRegenableObject> object = m_pContainer->FindObject(id);
  if (!object)
    return;
  GRegenObjectRelationDb& db = *m_pContainer->GetRelationDb();
  std::set<unsigned long long> unused;
  GRemoveRelationContext removeRelations(db, unused);
  object->CollectRelations(removeRelations);

  std::set<unsigned long long> dependents;
  if (GRegenObjectRelation* entry = db.GetRelations(id)) {
    entry->GetAllRelations(dependents);
    db.RemoveRelation(id);
  }
  m_setRemoved.insert(id);

  GRemoveObjectContext removal(id);
  object->OnRemoveObject(removal);
  for (unsigned long long dependentId : dependents)
    if (std::shared_ptr<IRegenableObject> dependent = m_pContainer->FindObject(dependentId))
      dependent->OnRemoveObject(removal);
  for (unsigned long long doomed : removal.GetIdsToRemove())
    m_pContainer->DeleteObject(doomed);
}

} // namespace zrn

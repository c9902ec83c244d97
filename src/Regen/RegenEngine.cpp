#include <zrn/Profile/GLog/LogManager.h>
#include <zrn/Regen/RegenEngine.h>
#include <zrn/Regen/RegenObject.h>

#include "Regen/PassState.h"
#include "Regen/RemovalQueue.h"

#include <algorithm>
#include <sstream>
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
    : m_pPass(std::make_unique<detail::PassState>()), m_pContainer(container),
      m_pRemovals(std::make_unique<detail::RemovalQueue>()) {}

GRegenEngine::~GRegenEngine() = default;

void GRegenEngine::MarkAtom(GRegenAtom const& atom) {
  if (m_bExecuting)
    return;
  if (m_bPropagating)
    m_pPass->AddPending(atom);
  else
    m_pPass->MarkRoot(atom);
}

namespace {

// Runs `f` however the scope ends, so that a callback that throws does not
// leave the engine believing that a pass or a removal is still running.
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
  // A callback that throws still leaves the ids updated so far recorded.
  ScopeExit endPass([this, &context] {
    m_pPass->FlushUpdated(context);
    EndPass();
  });
  m_vecCycles.clear();
  m_bPropagating = true;
  Propagate();
  m_bPropagating = false;
  m_pPass->ClearPending();
  m_pPass->FlushUpdated(context);
  RunSteps(context);
}

void GRegenEngine::EndPass() {
  m_bPropagating = m_bExecuting = false;
  m_pPass->Reset();
}

void GRegenEngine::Propagate() {
  m_pPass->Walk(m_bPerPath, [this](unsigned node) { return HandleAtom(node); });
}

bool GRegenEngine::HandleAtom(unsigned node) {
  unsigned long long const target = m_pPass->Atom(node).TargetId();
  if (m_setRemoved.contains(target))
    return false;
  std::shared_ptr<IRegenableObject> object = m_pContainer->FindObject(target);
  if (!object)
    return false;
  if (object->OnAtomChanged(m_pPass->Atom(node)))
    m_pPass->NoteUpdated(target);
  object.reset();
  NotifyDependents(node);
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
void GRegenEngine::NotifyDependents(unsigned node) {
  GRegenObjectRelationDb& db = *m_pContainer->GetRelationDb();
  GRegenAtom const& atom = m_pPass->Atom(node);
  unsigned long long const target = atom.TargetId();
  GRegenObjectRelation const* entry = db.GetRelations(target);
  if (!entry)
    return;
  auto& dependents = m_pPass->Dependents();
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
      m_pPass->NoteUpdated(target);
  }
  if (!stale.empty())
    if (GRegenObjectRelation* current = db.GetRelations(target))
      current->Remove(stale);
}

// Atoms marked while a node was handled become its children, unless equal to
// the node's atom or to one being handled up the path (a cycle).
void GRegenEngine::AttachPending(unsigned node) {
  auto const& pending = m_pPass->Pending();
  for (std::size_t i = 0; i < pending.size(); ++i) {
    std::uint32_t met;
    if (m_pPass->AttachChild(node, pending[i], m_bPerPath, met) ==
        detail::PassState::Attached::Cycle)
      ReportCycle(met, node);
  }
  m_pPass->ClearPending();
}

void GRegenEngine::ReportCycle(unsigned repeated, unsigned markedBy) {
  if (!m_pPass->NoteCycle(repeated, markedBy))
    return;
  GRegenCycle const& cycle =
      m_vecCycles.emplace_back(GRegenCycle{m_pPass->Atom(repeated), m_pPass->Atom(markedBy)});
  std::wostringstream line;
  line << L"regeneration cycle: object " << cycle.repeated.TargetId() << L" property \""
       << cycle.repeated.PropertyId() << L"\" was marked again by object "
       << cycle.markedBy.TargetId() << L" property \"" << cycle.markedBy.PropertyId() << L"\"";
  CSingleton<CLogManager>::GetInstance().Log(line.str(), LOG_LEVEL_TRIVIAL);
}

void GRegenEngine::RunSteps(GRegenContext& context) {
  m_bExecuting = true;
  m_pPass->PlanSteps(*m_pContainer);
  m_pPass->ExecuteSteps(context);
  EndPass();
  RefreshRelations(context);
  for (unsigned long long id : m_setRemoved)
    context.MarkDelete(id);
  m_setRemoved.clear();
}

// Relations reported now are added; those that disappeared are pruned when
// propagation next follows them. When the context's updated ids are just
// those of this pass, the pass's own sorted copy is walked instead of the
// context's tree: the same ids in the same order, without a pointer chase
// per id.
void GRegenEngine::RefreshRelations(GRegenContext& context) {
  GCollectRelationContext collect(*m_pContainer->GetRelationDb());
  bool const anyRemoved = !m_setRemoved.empty();
  auto refresh = [&](auto first, auto last) {
    for (; first != last; ++first) {
      if (anyRemoved && m_setRemoved.contains(*first))
        continue;
      if (std::shared_ptr<IRegenableObject> object = m_pContainer->FindObject(*first))
        object->CollectRelations(collect);
    }
  };
  auto const& updated = context.GetUpdatedIds();
  auto const* flushed = m_pPass->FlushedWholeSet();
  if (flushed && flushed->size() == updated.size())
    refresh(flushed->begin(), flushed->end());
  else
    refresh(updated.begin(), updated.end());
}

namespace {

// The object, then its dependents, say what goes with it; then it goes.
void RunRemoval(IRegenObjectContainer& container, detail::RemovalQueue const& queue,
                detail::RemovalQueue::Removal& removal) {
  GRemoveObjectContext context(removal.id);
  removal.object->OnRemoveObject(context);
  removal.object.reset();
  for (std::size_t i = removal.firstDependent; i != removal.endDependent; ++i)
    if (std::shared_ptr<IRegenableObject> dependent = container.FindObject(queue.Dependent(i)))
      dependent->OnRemoveObject(context);
  for (unsigned long long doomed : context.GetIdsToRemove())
    container.DeleteObject(doomed);
}

} // namespace

// The lookups happen at once, the callbacks in the removal's turn: a removal
// started from a callback of another waits until that one's DeleteObject
// calls are done, so removals never nest.
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

  std::vector<unsigned long long>& dependents = m_pRemovals->Scratch();
  dependents.clear();
  if (GRegenObjectRelation* entry = db.GetRelations(id)) {
    for (auto const& kind : *entry)
      dependents.insert(dependents.end(), kind.second.begin(), kind.second.end());
    db.RemoveRelation(id);
  }
  m_setRemoved.insert(id);
  m_pRemovals->Push(id, std::move(object), dependents);
  if (m_pRemovals->IsRunning())
    return;

  m_pRemovals->SetRunning(true);
  ScopeExit stop([this] { m_pRemovals->Clear(); });
  for (detail::RemovalQueue::Removal removal; m_pRemovals->Pop(removal);)
    RunRemoval(*m_pContainer, *m_pRemovals, removal);
}

} // namespace zrn

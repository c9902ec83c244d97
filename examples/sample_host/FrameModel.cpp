#include "FrameModel.h"

#include "Progress.h"

bool CFrameModel::Attach(zrn::IBaseProject& project, std::string& error) {
  if (!Index(project, error) || !Link(project, error))
    return false;
  zrn::GCollectRelationContext collect(*GetRelationDb());
  for (CFrameObject* object : m_objects)
    object->CollectRelations(collect);
  return true;
}

bool CFrameModel::Index(zrn::IBaseProject& project, std::string& error) {
  std::vector<zrn::IBaseEntity*> entities; // pre-order, without recursion
  zrn::IBaseEntity::GetAllLeafChild(&project, entities);
  // Ids come from the project's counter, so they are dense: an id far above
  // the count would make the index as large as the id.
  std::size_t const limit = 2 * entities.size() + 2;
  m_byId.assign(limit, nullptr);
  for (zrn::IBaseEntity* entity : entities) {
    if (entity == &project)
      continue;
    auto* object = dynamic_cast<CFrameObject*>(entity);
    auto const id = static_cast<unsigned long long>(entity->GetObjectID());
    if (object == nullptr || id >= limit || m_byId[id] != nullptr) {
      error = "object " + std::to_string(id) + " is not part of a frame this host built";
      return false;
    }
    m_byId[id] = object;
    object->SetModel(this);
  }
  m_objects.clear();
  for (CFrameObject* object : m_byId)
    if (object != nullptr)
      m_objects.push_back(object);
  return true;
}

bool CFrameModel::Link(zrn::IBaseProject& project, std::string& error) {
  m_project = &project;
  m_bayCount = 0;
  CBay* previous = nullptr;
  for (zrn::IBaseEntity* child : project.GetAllChild()) {
    if (auto* bay = dynamic_cast<CBay*>(child)) {
      bay->SetPrevious(previous);
      previous = bay;
      ++m_bayCount;
    } else if (auto* parameters = dynamic_cast<CParameters*>(child)) {
      m_parameters = parameters;
    } else if (auto* totals = dynamic_cast<CTotals*>(child)) {
      m_totals = totals;
    }
  }
  if (m_totals != nullptr)
    m_totals->SetLastBay(previous);
  if (m_parameters == nullptr || m_totals == nullptr || previous == nullptr) {
    error = "the project holds no frame (parameters, bays and totals)";
    return false;
  }
  return true;
}

void CFrameModel::Regenerate(zrn::GRegenContext& context) {
  m_updateOrder.clear();
  m_runOrder.clear();
  m_changed = 0;
  zrn::IRegenObjectContainer::Regenerate(context);
}

void CFrameModel::NoteRun(unsigned long long id, bool changed) {
  m_runOrder.push_back(id);
  m_changed += changed ? 1 : 0;
  CPhaseClock::Report(m_runOrder.size(), m_objects.size());
}

std::shared_ptr<zrn::IRegenableObject> CFrameModel::FindObject(unsigned long long id) {
  CFrameObject* object = Find(id);
  if (object == nullptr)
    return nullptr;
  // The project owns the entities: the pointer shares no ownership (an
  // empty owner), so handing it out allocates nothing.
  return std::shared_ptr<zrn::IRegenableObject>(std::shared_ptr<void>(), object);
}

void CFrameModel::DeleteObject(unsigned long long id) {
  CFrameObject* object = Find(id);
  if (object == nullptr || object == m_parameters || object == m_totals)
    return; // the frame cannot stand without them
  std::vector<zrn::IBaseEntity*> subtree;
  zrn::IBaseEntity::GetAllLeafChild(object, subtree);
  for (zrn::IBaseEntity* entity : subtree)
    m_byId[static_cast<unsigned long long>(entity->GetObjectID())] = nullptr;
  std::erase_if(m_objects, [&](CFrameObject* kept) { return Find(kept->GetRegenId()) != kept; });
  object->GetParent()->DeleteChild(object);
  // The bay after a removed one now follows the bay before it: link and
  // collect again (relations are sets, so the unchanged ones stay once).
  // Linear in the frame; the sample host never removes objects on a hot path.
  std::string ignored; // the parameters and totals are still there
  Link(*m_project, ignored);
  zrn::GCollectRelationContext collect(*GetRelationDb());
  for (CFrameObject* kept : m_objects)
    kept->CollectRelations(collect);
}

#include <zrn/Object/Entity.h>
#include <zrn/Object/Project.h>
#include <zrn/Store/StoreFacade.h>

#include "Store/StoreWork.h"

namespace zrn {
namespace {

GEntityStoreDevice* StoreOf(GDBDevice* device) { return dynamic_cast<GEntityStoreDevice*>(device); }

// Fills `entity`'s impl object from `bytes`, reporting a failure on `device`.
void Fill(IBaseEntity& entity, std::string_view bytes, GEntityStoreDevice* device) {
  std::string error;
  IBaseEntityImpl* impl = entity.GetBaseEntityImpl(false);
  if (impl && !detail::ReadBlob(*impl, bytes, error) && device)
    device->SetError("the data of entity " + std::to_string(entity.GetObjectID()) +
                     " cannot be read: " + error);
}

} // namespace

GStoreFacade::GStoreFacade() = default;
GStoreFacade::~GStoreFacade() = default;

void GStoreFacade::Report(char const* phase, std::size_t done, std::size_t total) const {
  if (m_progress)
    m_progress(phase, done, total);
}

void GStoreFacade::SaveProjectData(IBaseProject* project, GDBDevice* device) {
  m_bLastSaveOk = false;
  m_nLastSaveRows = 0;
  GEntityStoreDevice* store = StoreOf(device);
  if (!project || !store)
    return;
  CStoreSave save(*this, *store);
  m_bLastSaveOk = save.Run(*project);
  m_nLastSaveRows = m_bLastSaveOk ? save.RowCount() : 0;
}

IBaseEntity* GStoreFacade::LoadProjectData(long long projectId, GDBDevice* device) {
  GEntityStoreDevice* store = StoreOf(device);
  if (!store)
    return nullptr;
  return CStoreLoad(*this, *store).Run(projectId);
}

void GStoreFacade::SaveEntityData(IBaseEntity* entity, GDBDevice* device) {
  GEntityStoreDevice* store = StoreOf(device);
  if (!entity || !store || entity->HasObjectFlag(EGOBJECT_FLAG_SWAPPED))
    return;
  if (!entity->HasObjectFlag(EGOBJECT_FLAG_STORED)) {
    store->SetError("entity " + std::to_string(entity->GetObjectID()) +
                    " has no row yet: save the project first");
    return;
  }
  detail::CBlobWriter writer;
  std::string error;
  if (!writer.Write(*entity->GetBaseEntityImpl(false), error)) {
    store->SetError("the data of entity " + std::to_string(entity->GetObjectID()) +
                    " cannot be archived: " + error);
    return;
  }
  if (store->WriteData("EntityTable", entity->GetObjectID(), std::string(writer.Data(), writer.Size())))
    entity->SetObjectFlag(false, EGOBJECT_FLAG_MODIFIED);
}

void GStoreFacade::LoadChildEntities(IBaseEntity*, GDBDevice*) {}

void GStoreFacade::ReloadEntityData(IBaseEntity* entity, GDBDevice* device) {
  GEntityStoreDevice* store = StoreOf(device);
  std::string bytes;
  if (!entity || !store || !store->ReadEntityData(entity->GetObjectID(), bytes))
    return;
  entity->SetImplObject(entity->CreateBaseEntityImpl());
  Fill(*entity, bytes, store);
  entity->SetObjectFlag(false, static_cast<EGOBJECT_FLAG>(EGOBJECT_FLAG_MODIFIED | EGOBJECT_FLAG_SWAPPED));
  store->SwapIds().erase(entity->GetObjectID());
}

void GStoreFacade::DeleteEntityData(std::vector<long long> const& ids, GDBDevice* device) {
  if (GEntityStoreDevice* store = StoreOf(device))
    store->DeleteRecords("EntityTable", ids);
}

void GStoreFacade::FinishSave(GDBDevice*) {}

void GStoreFacade::LoadEntityData(IBaseEntity* entity, GDBDevice* device) {
  if (!entity)
    return;
  GEntityStoreDevice* store = StoreOf(device);
  std::string bytes;
  bool unsaved = true;
  if (auto found = m_detachedSwaps.find(entity); found != m_detachedSwaps.end()) {
    bytes.swap(found->second);
    m_detachedSwaps.erase(found);
  } else if (!store || !store->IsOpen()) {
    return;
  } else if (!store->SwapIds().count(entity->GetObjectID()) || !store->ReadSwapData(entity->GetObjectID(), bytes)) {
    unsaved = false;
    if (!store->ReadEntityData(entity->GetObjectID(), bytes))
      return;
  }
  Fill(*entity, bytes, store);
  entity->SetObjectFlag(false, EGOBJECT_FLAG_SWAPPED);
  // Data that never reached the store's rows is a change still to be saved.
  if (unsaved)
    entity->SetObjectFlag(true, EGOBJECT_FLAG_MODIFIED);
}

void GStoreFacade::SwapOutEntityData(IBaseEntity* entity, GDBDevice* device) {
  if (!entity || entity->HasObjectFlag(EGOBJECT_FLAG_SWAPPED))
    return; // the data is where the last swap-out put it
  GEntityStoreDevice* store = StoreOf(device);
  bool const open = store && store->IsOpen();
  long long const id = entity->GetObjectID();
  bool const differs = entity->HasObjectFlag(EGOBJECT_FLAG_MODIFIED) ||
                       !entity->HasObjectFlag(EGOBJECT_FLAG_STORED) ||
                       (open && store->SwapIds().count(id));
  if (!differs)
    return;
  detail::CBlobWriter writer;
  std::string error;
  if (!writer.Write(*entity->GetBaseEntityImpl(false), error)) {
    if (store)
      store->SetError("the data of entity " + std::to_string(id) + " cannot be archived: " + error);
    return;
  }
  if (open && store->WriteSwapData(id, writer.Data(), writer.Size())) {
    store->SwapIds().insert(id);
    return;
  }
  // No store to keep it in (or it refused): memory keeps it, so that nothing
  // is lost when the entity drops its impl object.
  m_detachedSwaps[entity].assign(writer.Data(), writer.Size());
}

void GStoreFacade::PrepareSave(GDBDevice* device) {
  GEntityStoreDevice* store = StoreOf(device);
  if (!store)
    return;
  if (store->IsOpen())
    store->ClearError();
  else
    store->SetError("cannot save: " + (store->LastError().empty() ? std::string("the store is not open")
                                                                  : store->LastError()));
}

} // namespace zrn

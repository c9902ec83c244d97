#include <zrn/Object/ObjTag.h>
#include <zrn/Object/ObjectsState.h>

namespace zrn {

GObjTag::GObjTag() : m_nObjID(0), m_pPointer(nullptr) {}

GObjTag::GObjTag(long long id, void* pointer) : m_nObjID(id), m_pPointer(pointer) {}

GObjTag::GObjTag(GObjTag const& other)
    : IBase(other), m_nObjID(other.m_nObjID), m_pPointer(other.m_pPointer) {}

GObjTag const& GObjTag::operator=(GObjTag const& other) {
  m_nObjID = other.m_nObjID;
  m_pPointer = other.m_pPointer;
  return *this;
}

bool GObjTag::operator==(GObjTag const& other) const {
  return m_nObjID == other.m_nObjID && m_pPointer == other.m_pPointer;
}

void GObjTag::Init() {
  m_nObjID = 0;
  m_pPointer = nullptr;
}

} // namespace zrn

GObjectsState::GObjectsState() = default;
GObjectsState::GObjectsState(GObjectsState const& other) = default;
GObjectsState& GObjectsState::operator=(GObjectsState const& other) = default;
GObjectsState::~GObjectsState() = default;

void GObjectsState::RegisterDeleteObject(long long id) { m_vecDeleteObjects.push_back(id); }

void GObjectsState::GetDeleteList(std::vector<long long>& out) const { out = m_vecDeleteObjects; }

void GObjectsState::ClearAllList() { m_vecDeleteObjects.clear(); }

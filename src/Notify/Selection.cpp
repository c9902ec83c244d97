#include <zrn/Notify/Selection.h>

namespace zrn {

GSelection::GSelection(ISubject* subject)
    : m_bSingle(false), m_pCondition(nullptr), m_pSubject(subject) {}

GSelection::~GSelection() {
  m_setMaskTypes.clear();
  m_setSelected.clear();
  m_pSubject = nullptr;
}

void GSelection::Destroy() { delete this; }

void GSelection::Announce(unsigned int code, std::vector<IBase*>& objects) {
  if (m_pSubject && !objects.empty())
    m_pSubject->Notify(code, &objects);
}

void GSelection::Update(unsigned int code, void* data) {
  if (code != OBJECTS_DELETED || !data)
    return;
  // A copy: removals announce, and an observer may change the sender's list.
  const std::vector<IBase*> deleted = *static_cast<std::vector<IBase*> const*>(data);
  for (IBase* object : deleted)
    Remove(object);
}

void GSelection::ResetMask() { m_setMaskTypes.clear(); }
void GSelection::AddMaskType(unsigned int type) { m_setMaskTypes.insert(type); }
void GSelection::RemoveMaskType(unsigned int type) { m_setMaskTypes.erase(type); }
std::set<unsigned int> const& GSelection::GetMaskTypes() { return m_setMaskTypes; }
void GSelection::SetCondition(ICheckCondition* condition) { m_pCondition = condition; }
void GSelection::SetMode(bool single) { m_bSingle = single; }

bool GSelection::Add(IBase* object) {
  if (!object || IsIn(object))
    return false;
  if (m_pCondition) {
    if (!m_pCondition->CheckObject(object))
      return false;
    if (!m_setMaskTypes.empty() && !IsAccepted(m_pCondition->GetCheckType(object)))
      return false;
  }
  if (m_bSingle)
    RemoveAll();
  Push(object);
  std::vector<IBase*> added{object};
  Announce(SELECTION_ADDED, added);
  return true;
}

bool GSelection::Add(std::vector<IBase*> const& objects) {
  if (objects.empty())
    return false;
  if (m_bSingle) {
    IBase* const first = objects.front();
    if (!first || IsIn(first))
      return false;
    RemoveAll();
    Push(first);
    std::vector<IBase*> added{first};
    Announce(SELECTION_ADDED, added);
    return true;
  }
  std::vector<IBase*> added;
  for (IBase* object : objects) {
    if (object && !IsIn(object)) {
      Push(object);
      added.push_back(object);
    }
  }
  Announce(SELECTION_ADDED, added);
  return false;
}

bool GSelection::Remove(IBase* object) {
  if (!Pop(object))
    return false;
  std::vector<IBase*> removed{object};
  Announce(SELECTION_REMOVED, removed);
  return true;
}

bool GSelection::Remove(std::vector<IBase*> const& objects) {
  std::vector<IBase*> removed;
  for (IBase* object : objects)
    if (Pop(object))
      removed.push_back(object);
  Announce(SELECTION_REMOVED, removed);
  return false;
}

void GSelection::RemoveAll() {
  if (m_setSelected.empty())
    return;
  std::vector<IBase*> removed(m_setSelected.begin(), m_setSelected.end());
  m_setSelected.clear();
  Announce(SELECTION_REMOVED, removed);
}

bool GSelection::IsIn(IBase* object) { return m_setSelected.count(object) != 0; }

bool GSelection::IsAccepted(unsigned int type) {
  return m_setMaskTypes.empty() || m_setMaskTypes.count(type) != 0;
}

bool GSelection::IsEmpty() { return m_setSelected.empty(); }

unsigned int GSelection::GetCount() { return static_cast<unsigned int>(m_setSelected.size()); }

std::set<IBase*> const& GSelection::GetAllSelectedOBj() { return m_setSelected; }

bool GSelection::Push(IBase* object) {
  if (!object)
    return false;
  m_setSelected.insert(object);
  return true;
}

bool GSelection::Pop(IBase* object) { return object && m_setSelected.erase(object) != 0; }

} // namespace zrn

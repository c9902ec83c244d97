// Selection sets: the objects a user has selected, filtered by type masks and
// a host condition, announced to views through a subject.
#ifndef ZRN_NOTIFY_SELECTION_H
#define ZRN_NOTIFY_SELECTION_H

#include <zrn/Export.h>
#include <zrn/Notify/Subject.h>

#include <set>
#include <vector>

namespace zrn {

class IBase;

/// Codes a selection sends (with a std::vector<IBase*>* of the objects
/// concerned, valid during the call) and the one it handles.
enum : unsigned int {
  SELECTION_ADDED = 0x100,   ///< sent after objects were added
  SELECTION_REMOVED = 0x200, ///< sent after objects were removed
  OBJECTS_DELETED = 0x4000,  ///< handled: the objects no longer exist
};

/// The host's filter of what may be selected.
class ZRN_API ICheckCondition {
public:
  /// May `object` be selected?
  virtual bool CheckObject(IBase* object) = 0;
  /// The type of `object` for the mask test.
  virtual unsigned int GetCheckType(IBase* object) = 0;

protected:
  ~ICheckCondition() = default;
};

/// A set of selected objects. Every change is announced through the subject
/// given at construction (which may be null). Attached as an observer to a
/// subject that sends OBJECTS_DELETED, it drops the deleted objects.
///
/// Neither the condition nor the subject is owned. Used from one thread.
class ZRN_API GSelection : public IObserver {
public:
  explicit GSelection(ISubject* subject);
  GSelection(GSelection const& other) = default;
  GSelection& operator=(GSelection const& other) = default;

  /// Handles OBJECTS_DELETED by removing each object (each removal
  /// announced); ignores every other code.
  void Update(unsigned int code, void* data) override;
  /// Clears masks and selection without announcing anything.
  virtual ~GSelection();
  /// Deletes this selection.
  virtual void Destroy();

  virtual void ResetMask();
  virtual void AddMaskType(unsigned int type);
  virtual void RemoveMaskType(unsigned int type);
  virtual std::set<unsigned int> const& GetMaskTypes();
  /// The filter for single adds; the current selection is not filtered again.
  virtual void SetCondition(ICheckCondition* condition);
  /// True: single selection (an add replaces the selection).
  virtual void SetMode(bool single);

  /// Adds the new, non-null objects of `objects`, unfiltered. Single mode
  /// takes only the first. Announces one SELECTION_ADDED in input order.
  /// True only when single mode selected the first object.
  virtual bool Add(std::vector<IBase*> const& objects);
  /// Adds `object` if it is new, passes the condition and (with a condition)
  /// the masks; true when it was added.
  virtual bool Add(IBase* object);
  /// Removes the selected objects of `objects`, announced once. Always false.
  virtual bool Remove(std::vector<IBase*> const& objects);
  /// Removes `object`; true when it was selected.
  virtual bool Remove(IBase* object);
  /// Removes everything, announced once (in address order).
  virtual void RemoveAll();
  virtual bool IsIn(IBase* object);
  /// True when the mask set is empty or holds `type`.
  virtual bool IsAccepted(unsigned int type);
  virtual bool IsEmpty();
  virtual unsigned int GetCount();
  virtual std::set<IBase*> const& GetAllSelectedOBj();

protected:
  /// Inserts without announcing; false for null.
  bool Push(IBase* object);
  /// Erases without announcing; false when not selected.
  bool Pop(IBase* object);

private:
  void Announce(unsigned int code, std::vector<IBase*>& objects);

  std::set<unsigned int> m_setMaskTypes;
  std::set<IBase*> m_setSelected;
  bool m_bSingle;
  ICheckCondition* m_pCondition;
  ISubject* m_pSubject;
};

} // namespace zrn

#endif // ZRN_NOTIFY_SELECTION_H

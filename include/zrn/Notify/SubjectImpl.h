// The two representations of a subject's observer list.
#ifndef ZRN_NOTIFY_SUBJECTIMPL_H
#define ZRN_NOTIFY_SUBJECTIMPL_H

#include <zrn/Notify/Subject.h>

#include <memory>
#include <set>
#include <unordered_set>
#include <vector>

namespace zrn {

/// A representation of a subject's observers.
class ZRN_API ISubjectImpl {
public:
  virtual ~ISubjectImpl();
  /// 0 for CSimpleSubjectImpl, 2 for CUnorderedSubjectImpl.
  virtual int GetImplType() = 0;
  virtual bool Attach(IObserver* observer) = 0;
  virtual bool Detach(IObserver* observer) = 0;
  virtual unsigned long long ObserverCount() = 0;
  /// A copy of the observers, in notification order.
  virtual std::vector<IObserver*> GetObservers() = 0;
  virtual bool Exist(IObserver* observer) = 0;
  virtual void DetachAll() = 0;
  virtual unsigned long long GetManagedMemBytes() = 0;
  /// Appends the observers to `observers` (not cleared first).
  virtual void GetAllObservers(std::vector<IObserver*>& observers) = 0;
  virtual void Notify(unsigned int code, void* data) = 0;

  /// While true, attaching and detaching are queued until the outermost
  /// notification ends.
  bool IsNotifying() const { return m_bNotifying; }
  bool IsEnabled() const { return m_bEnabled; }
  void SetEnabled(bool enabled) { m_bEnabled = enabled; }

protected:
  ISubjectImpl() = default;

  bool m_bNotifying = false;
  bool m_bEnabled = true;
};

/// What both representations share: the queues of changes made during a
/// notification, and the notification walk.
///
/// Changes made during a notification are applied when the outermost one
/// ends, detaches before attaches, so the walk never sees its collection
/// change. Attach and Detach answer from the observers attached now, not
/// from the queues: a detach followed by an attach of the same observer
/// leaves it attached (at the end, in the vector form), and a detach of an
/// observer that is only waiting to be attached returns false and leaves the
/// attach in place. For an attached observer the last call counts.
///
/// The library's own base of the two representations, not an extension
/// point: only they can construct it, and only the operations hosts reach
/// through them are exported (its type information is not).
class CQueuedSubjectImpl : public ISubjectImpl {
public:
  ZRN_API bool Attach(IObserver* observer) override;
  ZRN_API bool Detach(IObserver* observer) override;
  ZRN_API void DetachAll() override;
  ZRN_API void GetAllObservers(std::vector<IObserver*>& observers) override;
  ZRN_API void Notify(unsigned int code, void* data) override;

protected:
  /// Observers queued in order, each once.
  struct Queue {
    std::vector<IObserver*> order;
    std::unordered_set<IObserver*> members;
    void Add(IObserver* observer);
    bool Remove(IObserver* observer);
    bool Has(IObserver* observer) const { return members.count(observer) != 0; }
  };

  /// Takes over `other`'s observers (in its order) and its notifying flag.
  void TakeOver(ISubjectImpl& other);

  virtual void Insert(IObserver* observer) = 0;
  virtual void Remove(IObserver* observer) = 0;
  virtual void ClearAll() = 0;
  /// The observers, in order, as one array: a notification walks it with no
  /// call per observer besides Update. It does not change while a
  /// notification runs, since changes are queued until the outermost ends.
  virtual std::vector<IObserver*> const& Walkable() = 0;

private:
  friend class CSimpleSubjectImpl;
  friend class CUnorderedSubjectImpl;
  CQueuedSubjectImpl() = default;

  void ApplyQueues();

  std::unique_ptr<Queue> m_pPendingAttach;
  std::unique_ptr<Queue> m_pPendingDetach;
};

/// Observers in a vector, notified in attach order: cheap for few.
class ZRN_API CSimpleSubjectImpl : public CQueuedSubjectImpl {
public:
  CSimpleSubjectImpl();
  /// Takes over `other`'s observers in its order.
  explicit CSimpleSubjectImpl(ISubjectImpl& other);
  ~CSimpleSubjectImpl() override;

  int GetImplType() override { return 0; }
  unsigned long long ObserverCount() override { return m_vecObservers.size(); }
  std::vector<IObserver*> GetObservers() override { return m_vecObservers; }
  bool Exist(IObserver* observer) override;
  /// 8 bytes per element of capacity, plus 64.
  unsigned long long GetManagedMemBytes() override;

protected:
  void Insert(IObserver* observer) override;
  void Remove(IObserver* observer) override;
  void ClearAll() override { m_vecObservers.clear(); }
  std::vector<IObserver*> const& Walkable() override { return m_vecObservers; }

private:
  std::vector<IObserver*> m_vecObservers;
};

/// Observers in a set ordered by address: cheap lookup for many.
class ZRN_API CUnorderedSubjectImpl : public CQueuedSubjectImpl {
public:
  CUnorderedSubjectImpl();
  /// Takes over `other`'s observers.
  explicit CUnorderedSubjectImpl(ISubjectImpl& other);
  ~CUnorderedSubjectImpl() override;

  int GetImplType() override { return 2; }
  unsigned long long ObserverCount() override { return m_setObservers.size(); }
  std::vector<IObserver*> GetObservers() override {
    return std::vector<IObserver*>(m_setObservers.begin(), m_setObservers.end());
  }
  bool Exist(IObserver* observer) override { return m_setObservers.count(observer) != 0; }
  /// 40 bytes per observer, plus 104.
  unsigned long long GetManagedMemBytes() override { return 40 * m_setObservers.size() + 104; }

protected:
  void Insert(IObserver* observer) override {
    m_setObservers.insert(observer);
    m_bArrayStale = true;
  }
  void Remove(IObserver* observer) override {
    m_setObservers.erase(observer);
    m_bArrayStale = true;
  }
  void ClearAll() override {
    m_setObservers.clear();
    m_bArrayStale = true;
  }
  std::vector<IObserver*> const& Walkable() override;

private:
  std::set<IObserver*> m_setObservers;
  // The set in order as an array, rebuilt on the first walk after a change:
  // walking the tree itself costs a cache miss per observer.
  std::vector<IObserver*> m_vecArray;
  bool m_bArrayStale = true;
};

} // namespace zrn

#endif // ZRN_NOTIFY_SUBJECTIMPL_H

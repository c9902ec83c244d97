// Subjects and their observers.
//
// Observers attach to a subject, and Notify(code, data) calls every attached
// observer's Update(code, data). Observers may attach and detach from inside
// a notification: such changes are queued and applied when the outermost
// notification ends.
//
//   class Redraw : public zrn::IObserver {
//   public:
//     void Update(unsigned int code, void* data) override { ... }
//   };
//   zrn::GSubject document;
//   Redraw redraw;
//   document.Attach(&redraw);
//   document.Notify(kModelChanged, &changedIds);  // redraw.Update(kModelChanged, &changedIds)
//   document.Detach(&redraw);                     // before redraw is destroyed
#ifndef ZRN_NOTIFY_SUBJECT_H
#define ZRN_NOTIFY_SUBJECT_H

#include <zrn/Export.h>

#include <vector>

namespace zrn {

class ISubjectImpl;

/// Receives a subject's notifications. The meaning of the code and of the
/// data is agreed between the notifying party and its observers.
class ZRN_API IObserver {
public:
  virtual void Update(unsigned int code, void* data) = 0;

protected:
  ~IObserver() = default;
};

/// An observer list.
class ZRN_API ISubject {
public:
  /// Attaches `observer`; false when it is attached already.
  virtual bool Attach(IObserver* observer) = 0;
  /// Detaches `observer`; false when it is not attached.
  virtual bool Detach(IObserver* observer) = 0;
  /// Calls Update(code, data) on every attached observer.
  virtual void Notify(unsigned int code, void* data) = 0;
  /// Appends every attached observer to `observers`.
  virtual void GetAllObservers(std::vector<IObserver*>& observers) = 0;

protected:
  ~ISubject() = default;
};

/// The library's subject. It keeps few observers in a vector (notified in
/// attach order) and many in a set ordered by address, and switches by
/// itself: to the set when an attach or detach is made with 60 observers
/// present, back to the vector when one is made with 40 present.
///
/// During a notification, "attached" means attached when it began: an
/// observer attached within it is only waiting, so Detach of it returns false
/// and it is still attached when the notification ends.
///
/// Observers are not owned and must detach before they are destroyed. A
/// subject is used from one thread; it is not copyable.
class ZRN_API GSubject : public ISubject {
public:
  GSubject();
  GSubject(GSubject const&) = delete;
  GSubject& operator=(GSubject const&) = delete;

  bool Attach(IObserver* observer) override;
  bool Detach(IObserver* observer) override;
  /// Delivers nothing while notifications are disabled.
  void Notify(unsigned int code, void* data) override;
  void GetAllObservers(std::vector<IObserver*>& observers) override;
  virtual ~GSubject();

  virtual bool IsNotifyEnable() const;
  virtual void EnableNotify(bool enable);
  /// An estimate of the memory the subject manages, in bytes.
  virtual unsigned long long GetManageredMemBytes() const;

  /// True when `observer` is attached (changes pending in a running
  /// notification do not count).
  bool Exist(IObserver* observer);
  int ObserverCount() const;

private:
  void UpdateSubjectImpl();

  ISubjectImpl* m_pImpl;
};

} // namespace zrn

#endif // ZRN_NOTIFY_SUBJECT_H

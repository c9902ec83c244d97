#include <zrn/Notify/Subject.h>
#include <zrn/Notify/SubjectImpl.h>

#include <algorithm>

namespace zrn {

namespace {

// The observer counts at which a subject changes its representation.
constexpr unsigned long long kToUnordered = 60;
constexpr unsigned long long kToSimple = 40;
// What the subject itself adds to its representation's memory estimate.
constexpr unsigned long long kSubjectBytes = 16;

} // namespace

// --- Representations ---------------------------------------------------------

ISubjectImpl::~ISubjectImpl() = default;

void CQueuedSubjectImpl::Queue::Add(IObserver* observer) {
  if (members.insert(observer).second)
    order.push_back(observer);
}

bool CQueuedSubjectImpl::Queue::Remove(IObserver* observer) {
  if (members.erase(observer) == 0)
    return false;
  order.erase(std::find(order.begin(), order.end(), observer));
  return true;
}

void CQueuedSubjectImpl::TakeOver(ISubjectImpl& other) {
  for (IObserver* observer : other.GetObservers())
    Insert(observer);
  m_bNotifying = other.IsNotifying();
  m_bEnabled = other.IsEnabled();
}

bool CQueuedSubjectImpl::Attach(IObserver* observer) {
  const bool leaving = m_pPendingDetach && m_pPendingDetach->Has(observer);
  if (Exist(observer) && !leaving)
    return false;
  if (!m_bNotifying) {
    Insert(observer);
    return true;
  }
  if (!m_pPendingAttach)
    m_pPendingAttach = std::make_unique<Queue>();
  m_pPendingAttach->Add(observer);
  return true;
}

bool CQueuedSubjectImpl::Detach(IObserver* observer) {
  // An observer that is only waiting to be attached is not attached: its
  // pending attach stands.
  if (!Exist(observer))
    return false;
  if (!m_bNotifying) {
    Remove(observer);
    return true;
  }
  if (m_pPendingAttach && m_pPendingAttach->Remove(observer))
    return true; // detached, attached again, detached: its detach stands
  if (!m_pPendingDetach)
    m_pPendingDetach = std::make_unique<Queue>();
  m_pPendingDetach->Add(observer);
  return true;
}

void CQueuedSubjectImpl::DetachAll() {
  if (!m_bNotifying) {
    ClearAll();
    return;
  }
  m_pPendingDetach = std::make_unique<Queue>();
  for (IObserver* observer : GetObservers())
    m_pPendingDetach->Add(observer);
}

void CQueuedSubjectImpl::GetAllObservers(std::vector<IObserver*>& observers) {
  std::vector<IObserver*> const& all = Walkable();
  observers.insert(observers.end(), all.begin(), all.end());
}

void CQueuedSubjectImpl::Notify(unsigned int code, void* data) {
  struct Walk {
    CQueuedSubjectImpl* self;
    bool wasNotifying;
    ~Walk() {
      self->m_bNotifying = wasNotifying;
      if (!wasNotifying) // only the outermost notification changes the list
        self->ApplyQueues();
    }
  } walk{this, m_bNotifying};
  m_bNotifying = true;
  std::vector<IObserver*> const& observers = Walkable();
  for (IObserver* observer : observers) {
    Queue const* detaching = m_pPendingDetach.get(); // an Update may start the queue
    if (!detaching || !detaching->Has(observer))
      observer->Update(code, data);
  }
}

void CQueuedSubjectImpl::ApplyQueues() {
  if (auto detaching = std::move(m_pPendingDetach)) {
    for (IObserver* observer : detaching->order)
      if (Exist(observer))
        Remove(observer);
  }
  if (auto attaching = std::move(m_pPendingAttach)) {
    for (IObserver* observer : attaching->order)
      if (!Exist(observer))
        Insert(observer);
  }
}

// Out of line so that hosts never refer to the hidden base's virtual table.
CSimpleSubjectImpl::CSimpleSubjectImpl() = default;

CSimpleSubjectImpl::CSimpleSubjectImpl(ISubjectImpl& other) { TakeOver(other); }

CSimpleSubjectImpl::~CSimpleSubjectImpl() = default;

bool CSimpleSubjectImpl::Exist(IObserver* observer) {
  return std::find(m_vecObservers.begin(), m_vecObservers.end(), observer) != m_vecObservers.end();
}

unsigned long long CSimpleSubjectImpl::GetManagedMemBytes() {
  return 8 * m_vecObservers.capacity() + 64;
}

void CSimpleSubjectImpl::Insert(IObserver* observer) { m_vecObservers.push_back(observer); }

void CSimpleSubjectImpl::Remove(IObserver* observer) {
  m_vecObservers.erase(std::find(m_vecObservers.begin(), m_vecObservers.end(), observer));
}

CUnorderedSubjectImpl::CUnorderedSubjectImpl() = default;

CUnorderedSubjectImpl::CUnorderedSubjectImpl(ISubjectImpl& other) { TakeOver(other); }

CUnorderedSubjectImpl::~CUnorderedSubjectImpl() = default;

std::vector<IObserver*> const& CUnorderedSubjectImpl::Walkable() {
  if (m_bArrayStale) {
    m_vecArray.assign(m_setObservers.begin(), m_setObservers.end());
    m_bArrayStale = false;
  }
  return m_vecArray;
}

// --- GSubject --------------------------------------------------------------------

GSubject::GSubject() : m_pImpl(new CSimpleSubjectImpl) {}

GSubject::~GSubject() { delete m_pImpl; }

void GSubject::UpdateSubjectImpl() {
  // A switch would free the collection a running notification walks: it
  // waits until the notification has ended.
  if (m_pImpl->IsNotifying())
    return;
  ISubjectImpl* next = nullptr;
  const unsigned long long count = m_pImpl->ObserverCount();
  if (count == kToUnordered && m_pImpl->GetImplType() == 0)
    next = new CUnorderedSubjectImpl(*m_pImpl);
  else if (count == kToSimple && m_pImpl->GetImplType() == 2)
    next = new CSimpleSubjectImpl(*m_pImpl);
  if (!next)
    return;
  delete m_pImpl;
  m_pImpl = next;
}

bool GSubject::Attach(IObserver* observer) {
  UpdateSubjectImpl();
  return m_pImpl->Attach(observer);
}

bool GSubject::Detach(IObserver* observer) {
  UpdateSubjectImpl();
  return m_pImpl->Detach(observer);
}

void GSubject::Notify(unsigned int code, void* data) {
  if (m_pImpl->IsEnabled())
    m_pImpl->Notify(code, data);
}

void GSubject::GetAllObservers(std::vector<IObserver*>& observers) {
  m_pImpl->GetAllObservers(observers);
}

bool GSubject::IsNotifyEnable() const { return m_pImpl->IsEnabled(); }

void GSubject::EnableNotify(bool enable) { m_pImpl->SetEnabled(enable); }

unsigned long long GSubject::GetManageredMemBytes() const {
  return m_pImpl->GetManagedMemBytes() + kSubjectBytes;
}

bool GSubject::Exist(IObserver* observer) { return m_pImpl->Exist(observer); }

int GSubject::ObserverCount() const { return static_cast<int>(m_pImpl->ObserverCount()); }

} // namespace zrn

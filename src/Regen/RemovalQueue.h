// The removals waiting for their callbacks while an earlier removal runs, so
// that a host removing further objects from its callbacks does not nest
// calls as deep as its dependency chains.
#ifndef ZRN_SRC_REGEN_REMOVALQUEUE_H
#define ZRN_SRC_REGEN_REMOVALQUEUE_H

#include <zrn/Regen/RegenObject.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace zrn::detail {

class RemovalQueue {
public:
  struct Removal {
    unsigned long long id;
    std::shared_ptr<IRegenableObject> object; // held: the host may drop it before its turn
    std::size_t firstDependent;               // its dependents, ascending, in Dependents()
    std::size_t endDependent;
  };

  /// Queues a removal; `dependents` is the object's dependents in any order,
  /// with repeats.
  void Push(unsigned long long id, std::shared_ptr<IRegenableObject> object,
            std::vector<unsigned long long> const& dependents);
  /// Takes the oldest removal into `next`; false when none is left.
  bool Pop(Removal& next);
  unsigned long long Dependent(std::size_t i) const { return m_vecDependents[i]; }
  /// A buffer for the caller to collect dependents in before Push.
  std::vector<unsigned long long>& Scratch() { return m_vecScratch; }

  /// True while a removal's callbacks run: later removals wait their turn.
  bool IsRunning() const { return m_bRunning; }
  void SetRunning(bool running) { m_bRunning = running; }
  /// Forgets every waiting removal.
  void Clear();

private:
  std::vector<Removal> m_vecRemovals;
  std::size_t m_nHead = 0;
  std::vector<unsigned long long> m_vecDependents;
  std::vector<unsigned long long> m_vecScratch;
  bool m_bRunning = false;
};

} // namespace zrn::detail

#endif // ZRN_SRC_REGEN_REMOVALQUEUE_H

// A seeded pseudo-random generator with 15-bit outputs.
#ifndef ZRN_SYSTEM_RANDOM_H
#define ZRN_SYSTEM_RANDOM_H

#include <zrn/Export.h>

#include <cstdint>

namespace zrn {

/// Linear congruential generator: state = state * 214013 + 2531011 (mod
/// 2^32), output bits 16 to 30 of the state. Seed 1 gives 41, 18467, 6334,
/// 26500, 19169, ...
///
/// No shared state; one instance is used by one thread at a time.
class ZRN_API CRandom {
public:
  /// The largest value Rand returns.
  static const int RANDOM_MAX;

  explicit CRandom(unsigned long seed) : m_nState(static_cast<std::uint32_t>(seed)) {}
  CRandom& operator=(CRandom const&) = default;

  /// Restarts the sequence of `seed`.
  void Srand(unsigned long seed) { m_nState = static_cast<std::uint32_t>(seed); }
  /// The next value, from 0 to RANDOM_MAX.
  int Rand() {
    m_nState = m_nState * 214013u + 2531011u;
    return static_cast<int>((m_nState >> 16) & 0x7FFF);
  }

private:
  std::uint32_t m_nState;
};

} // namespace zrn

#endif // ZRN_SYSTEM_RANDOM_H

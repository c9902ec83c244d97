// Numbers in the C library's formatted output, independent of the process's
// locale.
#ifndef ZRN_SRC_PLATFORM_NUMERICLOCALE_H
#define ZRN_SRC_PLATFORM_NUMERICLOCALE_H

namespace zrn::platform {

/// While it lives, the calling thread's printf family writes numbers as in
/// the C locale (a full stop for the point, no digit grouping); every other
/// category of the locale in force, the charset of `%ls` included, stays as
/// it was. Costs one look-up when the locale in force already writes numbers
/// that way. Scopes on one thread must end in the reverse order of their
/// start.
class ClassicNumbers {
public:
  ClassicNumbers();
  ClassicNumbers(ClassicNumbers const&) = delete;
  ClassicNumbers& operator=(ClassicNumbers const&) = delete;
  ~ClassicNumbers();

private:
  void* m_pPrevious = nullptr; // the thread's locale before, when switched
  void* m_pOwn = nullptr;      // the locale switched to, freed at the end
};

} // namespace zrn::platform

#endif

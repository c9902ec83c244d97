#include "Platform/NumericLocale.h"

#include <cstring>
#include <langinfo.h>
#include <locale.h>

namespace zrn::platform {

namespace {

bool WritesClassicNumbers() {
  return std::strcmp(nl_langinfo(RADIXCHAR), ".") == 0 && *nl_langinfo(THOUSEP) == '\0';
}

} // namespace

ClassicNumbers::ClassicNumbers() {
  if (WritesClassicNumbers())
    return;
  // A copy of the locale in force (the global one when the thread has none
  // of its own), with the C locale's numbers.
  locale_t const copy = duplocale(uselocale(static_cast<locale_t>(nullptr)));
  if (copy == static_cast<locale_t>(nullptr))
    return;
  locale_t const mixed = newlocale(LC_NUMERIC_MASK, "C", copy);
  if (mixed == static_cast<locale_t>(nullptr)) {
    freelocale(copy);
    return;
  }
  m_pOwn = mixed;
  m_pPrevious = uselocale(mixed);
}

ClassicNumbers::~ClassicNumbers() {
  if (m_pOwn == nullptr)
    return;
  uselocale(static_cast<locale_t>(m_pPrevious));
  freelocale(static_cast<locale_t>(m_pOwn));
}

} // namespace zrn::platform

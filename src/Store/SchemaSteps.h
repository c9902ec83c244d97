// The order in which a store's schema is set up, shared by every database:
// the first version's tables in an empty store, then each migration step.
#ifndef ZRN_SRC_STORE_SCHEMASTEPS_H
#define ZRN_SRC_STORE_SCHEMASTEPS_H

#include <string>

namespace zrn::detail {

/// Brings a store of version `stored` (0: empty) to `target`: `create` makes
/// version 1, `step(from)` gives the SQL from `from` to `from + 1` (null when
/// there is none), and `run(sql, what)` runs SQL, returning the error text or
/// the empty text. Returns the first error, or the empty text.
template <class Step, class Run>
std::string ApplySchemaSteps(long long stored, int target, char const* create, Step step, Run run) {
  if (stored == 0) {
    if (std::string error = run(create, "cannot create the tables"); !error.empty())
      return error;
    stored = 1;
  }
  for (; stored < target; ++stored) {
    char const* sql = step(static_cast<int>(stored));
    if (!sql)
      return "no migration from schema version " + std::to_string(stored);
    if (std::string error = run(sql, "cannot migrate the schema"); !error.empty())
      return error;
  }
  return {};
}

} // namespace zrn::detail

#endif // ZRN_SRC_STORE_SCHEMASTEPS_H

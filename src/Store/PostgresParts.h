// The server store's private parts: the pipeline that carries a save's row
// statements, and the file that keeps swapped-out data.
#ifndef ZRN_SRC_STORE_POSTGRESPARTS_H
#define ZRN_SRC_STORE_POSTGRESPARTS_H

#include <zrn/Store/PostgresDevice.h>

#include "Store/PostgresWire.h"
#include "Store/RevisionIndex.h"

#include <cstdio>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zrn {

/// Row statements sent without waiting for their answers, read back in
/// batches. A batch ends with a sync point; inside the device's transaction
/// a sync commits nothing, it only lets the answers come.
class GPostgresDevice::Pipeline {
public:
  /// How a statement's answer is judged.
  enum Kind : unsigned char {
    kInsert,    ///< a unique-key violation means another process took the id
    kChecked,   ///< no row affected means another process changed the row
    kUnchecked, ///< any row count is fine
  };
  /// Statements sent before their answers are read.
  static constexpr std::size_t kBatch = 1024;

  /// What a drained batch came to.
  struct Outcome {
    bool ok = true;
    bool conflict = false;
    std::string error;
  };

  explicit Pipeline(PGconn* conn) : m_conn(conn) { m_items.reserve(kBatch); }

  /// Sends the prepared `statement` about entity `id`; false when libpq
  /// refuses it (a lost connection).
  bool Send(char const* statement, detail::CPgParams const& params, long long id, Kind kind);
  bool Full() const { return m_items.size() >= kBatch; }
  bool Empty() const { return m_items.empty(); }
  /// Reads every answer still due and leaves pipeline mode.
  Outcome Drain();

private:
  struct Item {
    long long id;
    Kind kind;
  };
  void Judge(PGresult const* result, Item item, Outcome& outcome) const;

  PGconn* m_conn;
  std::vector<Item> m_items;
};

/// Swapped-out data in an unnamed temporary file of this process: it does not
/// depend on the connection, and it is gone when the process ends.
class GPostgresDevice::SwapSpill {
public:
  SwapSpill() = default;
  SwapSpill(SwapSpill const&) = delete;
  SwapSpill& operator=(SwapSpill const&) = delete;
  ~SwapSpill() { Clear(); }

  /// Keeps `size` bytes for `id`, replacing what it kept before.
  bool Write(long long id, char const* data, unsigned size);
  /// What Write kept for `id`; false when nothing.
  bool Read(long long id, std::string& bytes);
  /// Forgets everything and gives the file back.
  void Clear();

private:
  std::FILE* m_file = nullptr;
  std::unordered_map<long long, std::pair<long, unsigned>> m_where;
};

} // namespace zrn

#endif // ZRN_SRC_STORE_POSTGRESPARTS_H

// The few pieces of libpq's binary protocol the server store needs:
// parameters built without heap allocation, results read with their lengths
// checked, and results that free themselves.
#ifndef ZRN_SRC_STORE_POSTGRESWIRE_H
#define ZRN_SRC_STORE_POSTGRESWIRE_H

#include <libpq-fe.h>

#include <cassert>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace zrn::detail {

/// Type oids of the parameters the store's statements take.
constexpr Oid kInt4Oid = 23;
constexpr Oid kInt8Oid = 20;
constexpr Oid kByteaOid = 17;
constexpr Oid kTextOid = 25;
constexpr Oid kFloat8Oid = 701;

struct SResultFree {
  void operator()(PGresult* result) const { PQclear(result); }
};
/// A result that PQclear frees.
using CPgResult = std::unique_ptr<PGresult, SResultFree>;

/// Up to kMax parameters in binary form. Integers are kept inside the object;
/// byte strings are pointed at and must outlive the call that sends them.
class CPgParams {
public:
  static constexpr int kMax = 8;

  CPgParams& Int8(long long value) {
    auto bits = static_cast<std::uint64_t>(value);
    for (int i = 7; i >= 0; --i, bits >>= 8)
      m_ints[m_nCount][i] = static_cast<char>(bits & 0xFF);
    return Add(m_ints[m_nCount], 8);
  }
  CPgParams& Int4(int value) {
    auto bits = static_cast<std::uint32_t>(value);
    for (int i = 3; i >= 0; --i, bits >>= 8)
      m_ints[m_nCount][i] = static_cast<char>(bits & 0xFF);
    return Add(m_ints[m_nCount], 4);
  }
  /// SQL NULL.
  CPgParams& Null() { return Add(nullptr, 0); }
  CPgParams& Bytes(char const* data, std::size_t size) {
    assert(size <= 0x7FFFFFFF && "a parameter larger than the protocol carries");
    return Add(size ? data : "", static_cast<int>(size));
  }

  int Count() const { return m_nCount; }
  char const* const* Values() const { return m_values; }
  int const* Lengths() const { return m_lengths; }
  int const* Formats() const { return m_formats; }

private:
  CPgParams& Add(char const* data, int size) {
    assert(m_nCount < kMax && "too many parameters");
    m_values[m_nCount] = data;
    m_lengths[m_nCount] = size;
    m_formats[m_nCount] = 1;
    ++m_nCount;
    return *this;
  }

  char m_ints[kMax][8] = {};
  char const* m_values[kMax] = {};
  int m_lengths[kMax] = {};
  int m_formats[kMax] = {};
  int m_nCount = 0;
};

/// Runs the prepared statement `name` with binary parameters and results.
inline CPgResult ExecPrepared(PGconn* conn, char const* name, CPgParams const& params) {
  return CPgResult(PQexecPrepared(conn, name, params.Count(), params.Values(), params.Lengths(),
                                  params.Formats(), 1));
}

/// The bytes of a binary result cell; empty for NULL.
inline std::string_view Cell(PGresult const* result, int row, int column) {
  if (PQgetisnull(result, row, column))
    return {};
  return {PQgetvalue(result, row, column),
          static_cast<std::size_t>(PQgetlength(result, row, column))};
}

/// A binary int2, int4 or int8 cell as a number; false when the cell is none
/// of them (NULL, or a length no integer has).
inline bool IntCell(PGresult const* result, int row, int column, long long& value) {
  std::string_view cell = Cell(result, row, column);
  if (cell.size() != 8 && cell.size() != 4 && cell.size() != 2)
    return false;
  std::uint64_t bits = static_cast<unsigned char>(cell[0]) & 0x80 ? ~std::uint64_t{0} : 0;
  for (char c : cell)
    bits = (bits << 8) | static_cast<unsigned char>(c);
  value = static_cast<long long>(bits);
  return true;
}

/// The server's error text of `result` (or of the connection when there is
/// no result), without its trailing line feed.
inline std::string ErrorText(PGconn* conn, PGresult const* result) {
  std::string text =
      result && *PQresultErrorMessage(result) ? PQresultErrorMessage(result) : PQerrorMessage(conn);
  while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
    text.pop_back();
  return text.empty() ? "no answer from the server" : text;
}

/// The SQLSTATE of a failed result; empty when it has none.
inline std::string_view ErrorState(PGresult const* result) {
  char const* state = result ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
  return state ? state : "";
}

/// `connection` with its password left out, for messages.
std::string HidePassword(std::string const& connection);

/// Creates or migrates the store's tables in the current schema of `conn`;
/// empty on success, else what went wrong. `version` is the store's version
/// afterwards.
std::string PreparePgSchema(PGconn* conn, int target, int& version);

} // namespace zrn::detail

#endif // ZRN_SRC_STORE_POSTGRESWIRE_H

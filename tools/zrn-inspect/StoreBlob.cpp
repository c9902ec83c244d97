#include "StoreBlob.h"

#include <sqlite3.h>

#include <algorithm>

namespace zrn::inspect {

CStoreBlob::CStoreBlob() : GIODevice(false) {}

CStoreBlob::~CStoreBlob() {
  if (m_pBlob)
    sqlite3_blob_close(m_pBlob);
  if (m_pDb)
    sqlite3_close(m_pDb);
}

bool CStoreBlob::Fail(std::string const& what) {
  m_strError = what;
  if (m_pDb)
    m_strError += std::string(": ") + sqlite3_errmsg(m_pDb);
  return false;
}

bool CStoreBlob::OpenStore(std::string const& path) {
  if (sqlite3_open_v2(path.c_str(), &m_pDb, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
    return Fail("cannot open the store");
  // A file that is no database fails at its first read, not at the open.
  if (sqlite3_exec(m_pDb, "SELECT count(*) FROM sqlite_schema", nullptr, nullptr, nullptr) !=
      SQLITE_OK)
    return Fail("cannot read the store");
  return true;
}

bool CStoreBlob::ProjectId(long long& id) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(m_pDb, "SELECT ID FROM EntityTable WHERE PID = 0 LIMIT 1", -1, &statement,
                         nullptr) != SQLITE_OK)
    return Fail("cannot find the project");
  const int step = sqlite3_step(statement);
  if (step == SQLITE_ROW)
    id = sqlite3_column_int64(statement, 0);
  sqlite3_finalize(statement);
  if (step == SQLITE_ROW)
    return true;
  m_strError = "the store holds no project";
  return false;
}

bool CStoreBlob::OpenRow(char const* table, long long id) {
  if (sqlite3_blob_open(m_pDb, "main", table, "Data", id, 0, &m_pBlob) != SQLITE_OK)
    return Fail(std::string("cannot read row ") + std::to_string(id) + " of " + table);
  m_nSize = sqlite3_blob_bytes(m_pBlob);
  m_nPos = 0;
  return true;
}

unsigned int CStoreBlob::Read(void* data, unsigned int size) {
  const auto count = static_cast<int>(std::min<long long>(size, m_nSize - m_nPos));
  if (!m_pBlob || count <= 0 ||
      sqlite3_blob_read(m_pBlob, data, count, static_cast<int>(m_nPos)) != SQLITE_OK)
    return 0;
  m_nPos += count;
  return static_cast<unsigned int>(count);
}

bool CStoreBlob::seek(long long position) {
  if (position < 0 || position > m_nSize)
    return false;
  m_nPos = position;
  return true;
}

} // namespace zrn::inspect

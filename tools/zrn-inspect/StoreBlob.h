// One blob of a project store, read in place: the store file is opened
// read-only, so inspecting it never creates, migrates or locks it for writing.
#ifndef ZRN_TOOLS_INSPECT_STOREBLOB_H
#define ZRN_TOOLS_INSPECT_STOREBLOB_H

#include <zrn/IO/IODevice.h>

#include <string>

struct sqlite3;
struct sqlite3_blob;

namespace zrn::inspect {

/// A loading device over the "Data" column of one row of a store's table.
/// Reads go straight to the blob, so memory does not grow with its size.
class CStoreBlob : public GIODevice {
public:
  CStoreBlob();
  ~CStoreBlob() override;
  CStoreBlob(CStoreBlob const&) = delete;
  CStoreBlob& operator=(CStoreBlob const&) = delete;

  /// Opens the store at `path` (UTF-8) read-only; false with Error() set.
  bool OpenStore(std::string const& path);
  /// The blob of row `id` of `table`; false with Error() set.
  bool OpenRow(char const* table, long long id);
  /// The id of the project: the entity row whose parent is 0.
  bool ProjectId(long long& id);
  std::string const& Error() const { return m_strError; }

  long long pos() override { return m_nPos; }
  bool Write(void*, unsigned int) override { return false; }
  unsigned int Read(void* data, unsigned int size) override;
  bool seek(long long position) override;
  long long RemainingSize() override { return m_nSize - m_nPos; }

private:
  bool Fail(std::string const& what);

  sqlite3* m_pDb = nullptr;
  sqlite3_blob* m_pBlob = nullptr;
  long long m_nSize = 0;
  long long m_nPos = 0;
  std::string m_strError;
};

} // namespace zrn::inspect

#endif

// The byte order of the machine.
#ifndef ZRN_IO_ENDIANINFO_H
#define ZRN_IO_ENDIANINFO_H

#include <zrn/Export.h>

namespace zrn {

/// Reports whether the machine is little-endian (it always is on the
/// platforms the library supports; archives are little-endian).
class ZRN_API CEndianInfoMananger {
public:
  /// The single instance, created on the first call.
  static CEndianInfoMananger* GetInstance();

  bool GetIsLittleEndian() const { return m_bLittleEndian; }
  CEndianInfoMananger& operator=(CEndianInfoMananger const& other) = default;

protected:
  CEndianInfoMananger();
  ~CEndianInfoMananger();
  /// 1 on a little-endian machine.
  static int is_little_endian();

private:
  bool m_bLittleEndian;
};

} // namespace zrn

#endif // ZRN_IO_ENDIANINFO_H

// The library's typed value.
//
// A CVariant holds one value of any registered data type: a plain number or
// flag stored inside it, a heap object that it owns (strings, the colour
// integer, geometric values) and copies, destroys and archives through the
// object factory, or a counted object on which it holds one reference.
//
//   zrn::CVariant value(2.5);
//   value.toInt();               // 2: truncated toward zero
//   value.toString();            // "2.5"
//   value = std::wstring(L"42");
//   bool ok = false;
//   int n = value.toInt(&ok);    // 42, ok true
//   zrn::CVariant().IsNull();    // true
#ifndef ZRN_PROPERTY_VARIANT_H
#define ZRN_PROPERTY_VARIANT_H

#include <zrn/Export.h>
#include <zrn/Object/DataType.h>
#include <zrn/Property/Color.h>
#include <zrn/Property/Geometry.h>

#include <string>

namespace zrn {

class CReferenced;
class GDbArchive;

/// The storage of a CVariant.
struct ZRN_API VariantStru {
  /// The held value: a plain value in its low-order bytes (the rest zero), or
  /// an object pointer.
  union Value {
    bool bVal;
    char cVal;
    unsigned char ucVal;
    short sVal;
    unsigned short usVal;
    int nVal;
    unsigned int unVal;
    float fVal;
    long long llVal;
    unsigned long long ullVal;
    double dVal;
    void* pVal;
  } m_value;
  /// The held type; GBM_NONE when the variant is null.
  eGBMDataType m_eType;
  /// Nothing held and nothing to release (the initial and reset state).
  bool m_bEmpty;
  /// m_value points to a CReferenced on which the variant holds a reference.
  bool m_bRefPtr;
  /// m_value points to a heap object released through the factory.
  bool m_bObject;

  /// The initial state: null, empty, no flags.
  VariantStru();
  /// Clears value, type, empty and reference flags; keeps m_bObject.
  void Init();
};

/// A typed value. Not thread-safe: one variant is used by one thread at a
/// time. Copies are deep for owned objects and take a reference of their own
/// for counted ones; self-assignment is safe.
class ZRN_API CVariant {
public:
  /// A null variant.
  CVariant();
  CVariant(CVariant const& other);
  ~CVariant();

  CVariant(bool value);
  CVariant(char value);
  CVariant(unsigned char value);
  CVariant(short value);
  CVariant(unsigned short value);
  CVariant(int value);
  CVariant(unsigned int value);
  CVariant(float value);
  CVariant(long long value);
  CVariant(unsigned long long value);
  /// A 64-bit integer (long is 64-bit here), as the long long form.
  CVariant(long value);
  /// A 64-bit unsigned integer, as the unsigned long long form.
  CVariant(unsigned long value);
  CVariant(double value);
  CVariant(std::string const& value);
  CVariant(std::wstring const& value);
  /// `value` must not be null (asserted in Debug builds).
  CVariant(char const* value);
  /// `value` must not be null (asserted in Debug builds).
  CVariant(wchar_t const* value);
  CVariant(CColor const& value);

  CVariant& operator=(CVariant const& other);
  CVariant& operator=(bool value);
  CVariant& operator=(char value);
  CVariant& operator=(unsigned char value);
  CVariant& operator=(short value);
  CVariant& operator=(unsigned short value);
  CVariant& operator=(int value);
  CVariant& operator=(unsigned int value);
  CVariant& operator=(float value);
  CVariant& operator=(long long value);
  CVariant& operator=(unsigned long long value);
  CVariant& operator=(long value);
  CVariant& operator=(unsigned long value);
  CVariant& operator=(double value);
  CVariant& operator=(std::string const& value);
  CVariant& operator=(std::wstring const& value);
  CVariant& operator=(char const* value);
  CVariant& operator=(wchar_t const* value);
  CVariant& operator=(FileAddress const& value);
  CVariant& operator=(CColor const& value);
  /// Holds the six doubles of `box` as a LocalBox.
  CVariant& operator=(CBox3<double> const& box);
  /// Holds the twelve doubles of `coord` as a LocalCoord3d.
  CVariant& operator=(CCoord3<double> const& coord);
  /// Holds the two doubles of `vec` as a LocalVec2d.
  CVariant& operator=(CVec2<double> const& vec);
  /// Holds the three doubles of `vec` as a LocalVec3d.
  CVariant& operator=(CVec3<double> const& vec);

  /// True for the type GBM_NONE only: an empty string, say, is not null.
  bool IsNull() const { return m_data.m_eType == GBM_NONE; }
  VariantStru const& GetVariantStru() const { return m_data; }
  /// The held value as T; only CColor is provided.
  template <class T> T GetValue() const;

  /// Holds `id` as an object identifier (GBM_OBJECT_ID).
  void SetObjectID(unsigned long long id);
  /// The object identifier held, or 0 (with *ok false) for any other type.
  unsigned long long toObjectID(bool* ok = nullptr) const;

  /// Holds `p` with one reference; its type is that of its class if
  /// registered, else GBM_REF_OBJECT. A null `p` leaves the variant null.
  void SetValueRefPtr(CReferenced* p);
  /// The held counted object, or null when none is held.
  CReferenced* GetValueRefPtr() const;
  /// Refers to `p`, which somebody else keeps alive, with the type given:
  /// no reference is taken and nothing is released. Use on a null variant.
  void SetDBValueRefPtr(CReferenced* p, eGBMDataType type);
  /// The held pointer as a CReferenced, whatever the flags.
  CReferenced* GetDBValueRefPtr() const;

  /// The data type registered under the run-time class name `name`, or
  /// GBM_NONE.
  static eGBMDataType GetDataTypeFromClassName(char const* name);

  /// Writes or reads the variant as the archive's direction says. Always true.
  bool Serialize(GDbArchive& ar);

  // Conversions: each sets *ok (when given) to whether it succeeded and
  // returns the target's zero value on failure. Text that is not a number is
  // no failure: it reads as 0.
  bool toBool(bool* ok = nullptr) const;
  char toChar(bool* ok = nullptr) const;
  unsigned char toUChar(bool* ok = nullptr) const;
  short toShort(bool* ok = nullptr) const;
  unsigned short toUShort(bool* ok = nullptr) const;
  int toInt(bool* ok = nullptr) const;
  unsigned int toUInt(bool* ok = nullptr) const;
  long long toInt64(bool* ok = nullptr) const;
  unsigned long long toUInt64(bool* ok = nullptr) const;
  float toFloat(bool* ok = nullptr) const;
  double toDouble(bool* ok = nullptr) const;
  /// Opaque black on failure.
  CColor toColor(bool* ok = nullptr) const;
  /// Doubles and floats with 8 significant digits, as "1.5", "100." or
  /// "1.2345679e+008".
  std::string toString(bool* ok = nullptr) const;
  std::wstring toWString(bool* ok = nullptr) const;

private:
  template <class T> void SetPlain(T value, eGBMDataType type);
  void SetValue2(void const* src, eGBMDataType type, bool copy);
  void Construct();
  void Destruct(bool reset);
  bool _IsRefPtr() const { return m_data.m_bRefPtr; }
  bool SerializeCutomObject(GDbArchive& ar);
  void WriteCustomObject(GDbArchive& ar);
  void ReadCustomObject(GDbArchive& ar);
  void ReadPlain(GDbArchive& ar);

  static long long GetNumberInt64(CVariant const& src, bool& ok);
  static double GetNumberDouble(CVariant const& src, bool& ok);
  static bool ConvertVariantToString(CVariant const& src, std::string& out);

  VariantStru m_data;
};

/// The held colour; opaque black when the variant holds no colour.
template <> ZRN_API CColor CVariant::GetValue<CColor>() const;

} // namespace zrn

#endif // ZRN_PROPERTY_VARIANT_H

// Named, typed properties of an object, stored under compact 16-bit ids.
//
// A collection belongs to one object (an IBase) and keeps its values as
// CVariants. Property names are wide strings; inside a collection they are
// replaced by 16-bit ids that a process-wide scheme assigns per object class
// and per product (a named namespace of properties, "ZRN" by default). An
// archive carries each class's scheme once, in front of the first collection
// of that class, and ids that the stream numbered differently from the
// running process are translated when the collections are read back.
//
//   zrn::CPropertyCollection properties(&wall);  // wall: the owning IBase
//   properties.SetProperty(L"height", zrn::CVariant(3.0));
//   properties.GetProperty(L"height").toDouble();  // 3.0
//   properties.GetProperty(L"colour").IsNull();    // true: never set
//   properties.Serialize(ar);  // the class's scheme goes first, once per archive
#ifndef ZRN_PROPERTY_PROPERTYCOLLECTION_H
#define ZRN_PROPERTY_PROPERTYCOLLECTION_H

#include <zrn/Export.h>
#include <zrn/Object/DataType.h>
#include <zrn/Property/Variant.h>

#include <map>
#include <string>

namespace zrn {

class GDbArchive;
class IBase;

// The destructor is non-virtual on purpose: collections live as members of
// their objects and are never deleted through a pointer to a base.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// The properties of one object, with the process-wide schemes that name them.
///
/// Invariants:
/// - in every product scheme, m_mapNameToID and m_mapIDToName hold the same
///   pairs, and no pair has an id whose index is 0;
/// - the schemes and the product table only grow, until ClearPropertyScheme;
/// - a name that cannot get an id (its class and product already use all
///   1,023 indexes) gets the id 0, and name-based setting stores nothing.
///
/// Thread safety: the scheme and product tables are static and unlocked, and
/// every collection reads or grows them. Use collections, and archive them,
/// from one thread at a time.
class ZRN_API CPropertyCollection {
public:
  /// A property id: the product number in bits 0-5, the index within the
  /// class and product in bits 6-15. Its numeric value, product x 1024 +
  /// index, orders ids and is what archives and the `unsigned short`
  /// operations use. The id 0 stands for no property.
  struct sPropertyID {
    unsigned short m_nProductID : 6;
    unsigned short m_nIndex : 10;

    /// The id 0: no property.
    constexpr sPropertyID() : m_nProductID(0), m_nIndex(0) {}
    /// The id of `index` under `productID`; both keep only their field's bits.
    constexpr sPropertyID(unsigned char productID, unsigned short index)
        : m_nProductID(productID & 0x3F), m_nIndex(index & 0x3FF) {}
    /// The id whose numeric value is `value`.
    constexpr explicit sPropertyID(unsigned short value)
        : m_nProductID((value >> 10) & 0x3F), m_nIndex(value & 0x3FF) {}

    constexpr unsigned short Value() const {
      return static_cast<unsigned short>(m_nProductID << 10 | m_nIndex);
    }
    /// The numeric value, so that an id passes where a number is taken.
    constexpr operator unsigned short() const { return Value(); }

    friend constexpr bool operator<(sPropertyID a, sPropertyID b) { return a.Value() < b.Value(); }
    friend constexpr bool operator==(sPropertyID a, sPropertyID b) {
      return a.Value() == b.Value();
    }
  };

  /// One product's scheme for one class. Both maps hold the same pairs.
  struct sOneClassSchemeIDName {
    /// Name to id.
    std::map<std::wstring, sPropertyID> m_mapNameToID;
    /// Id to name, in numeric order.
    std::map<sPropertyID, std::wstring> m_mapIDToName;
  };

  /// Every product's scheme for one class, by product name.
  struct sOneClassAllScheme {
    /// Product name to that product's scheme.
    std::map<std::wstring, sOneClassSchemeIDName> m_mapProductScheme;
  };

  /// An empty collection of `object` (not owned; may be null when only the
  /// id-based operations are used). The active product is "ZRN", which gets a
  /// product number here if it has none yet.
  explicit CPropertyCollection(IBase* object);
  /// Copies the values, the object and the active product; an iteration in
  /// progress continues at the same property in the copy.
  CPropertyCollection(CPropertyCollection const& other);
  /// Replaces the values only, as CopyFrom.
  CPropertyCollection& operator=(CPropertyCollection const& other);
  /// Non-virtual: see the note above the class.
  ~CPropertyCollection();

  /// Replaces the values by copies of `other`'s; the object and the active
  /// product stay. An iteration in progress ends.
  void CopyFrom(CPropertyCollection const& other);

  /// Sets the owning object, whose class selects the scheme.
  void SetObject(IBase* object);

  /// The process-wide number of product `product`, given on first use: 1 for
  /// the first product, then one more than the largest number so far. Once 255
  /// is taken, the smallest free number is given, and 0 (nothing recorded)
  /// when all 255 are in use. Ids keep only the low 6 bits of a number.
  static unsigned char AssignProducutID(std::wstring const& product);

  /// Makes `product` active for the name-based operations, numbering it if
  /// it is new.
  void SetActiveProduct(std::wstring const& product);

  /// The id of `name` under `product` in the scheme of the object's class,
  /// given on first use with the next index after the largest id (the
  /// smallest free index once 1,023 is reached) and the low 6 bits of
  /// `productID`; `productID` 0 stands for AssignProducutID(product). Returns
  /// 0 without recording when no index is free or no object is set.
  sPropertyID AssignPropertyID(std::wstring const& product, unsigned char productID,
                               std::wstring const& name);

  /// The id of `name` in the active product's scheme of the object's class,
  /// or 0 when the scheme lacks it. Assigns no id.
  sPropertyID GetPropertyID(std::wstring const& name);

  /// Fills `product` and `name` (both emptied first) from the first product
  /// scheme of the object's class, in product-name order, that knows `id`.
  void GetPropertyName(sPropertyID id, std::wstring& product, std::wstring& name);

  /// The active product's scheme of the object's class, created empty if the
  /// class has none for it; null when the class has no scheme at all.
  sOneClassSchemeIDName* FindActiveSchemeIDName();

  /// Stores a copy of `value` under the id with numeric value `id`.
  virtual void SetProperty(unsigned short id, CVariant const& value);
  /// Stores a copy of `value` under the id of `name` in the active product,
  /// assigning one if needed; stores nothing when no id can be assigned.
  virtual void SetProperty(std::wstring const& name, CVariant const& value);
  /// A copy of the value under `id`, or a null variant.
  virtual CVariant GetProperty(unsigned short id);
  /// A copy of the value of `name` in the active product, or a null variant.
  virtual CVariant GetProperty(std::wstring const& name);
  /// Removes the value under `id`, if any.
  virtual void RemoveProperty(unsigned short id);
  /// Removes the value of `name` in the active product, if any. The scheme
  /// keeps the name.
  virtual void RemoveProperty(std::wstring const& name);

  /// Writes or reads the collection as the archive's direction says: the
  /// class's scheme when this archive does not hold it yet, then the values
  /// by numeric id. Reading translates stored ids to the process's and never
  /// reads past the device, whatever the bytes. Always true.
  virtual bool Serialize(GDbArchive& ar);

  /// Starts an iteration at the smallest id.
  void First();
  /// False at the end, leaving the outputs alone. Otherwise fills `product`
  /// and `name` as GetPropertyName does, copies the value, advances and
  /// returns true. Valid after First while the values do not change.
  bool Next(std::wstring& product, std::wstring& name, CVariant& value);

  /// Empties the scheme and product tables, for example between independent
  /// documents or tests. Ids held by existing collections lose their names.
  static void ClearPropertyScheme();

  /// Every class's schemes, by class type.
  static std::map<eGBMDataType, sOneClassAllScheme> m_mapAllClassScheme;
  /// Every product's number, by product name.
  static std::map<std::wstring, unsigned char> m_mapAllProducutID;

private:
  // Writes or reads the class-scheme part that precedes the values.
  bool SerializePropertyScheme(GDbArchive& ar);

  std::map<sPropertyID, CVariant> m_mapProperty;
  std::map<sPropertyID, CVariant>::iterator m_itCurrent;
  IBase* m_pObject;
  std::wstring m_strActiveProduct;
  unsigned char m_nActiveProductID;
};

#pragma GCC diagnostic pop

} // namespace zrn

#endif // ZRN_PROPERTY_PROPERTYCOLLECTION_H

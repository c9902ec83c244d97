#include <zrn/IO/DbArchive.h>
#include <zrn/IO/IODevice.h>
#include <zrn/Object/IBase.h>
#include <zrn/Property/PropertyCollection.h>

#include <algorithm>
#include <bitset>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace zrn {

std::map<eGBMDataType, CPropertyCollection::sOneClassAllScheme>
    CPropertyCollection::m_mapAllClassScheme;
std::map<std::wstring, unsigned char> CPropertyCollection::m_mapAllProducutID;

namespace {

using sPropertyID = CPropertyCollection::sPropertyID;
using SchemeIDName = CPropertyCollection::sOneClassSchemeIDName;

constexpr unsigned short kMaxIndex = 1023;
constexpr unsigned char kProductBits = 0x3F;

// The index a new name gets under `productBits`: one past the largest id, as
// long as that fits and is free. An id given with an explicit product number
// can sit anywhere, so past that point the smallest free index is searched.
unsigned short NewIndex(SchemeIDName const& scheme, unsigned char productBits) {
  auto const& ids = scheme.m_mapIDToName;
  if (ids.empty())
    return 1;
  const unsigned next = ids.rbegin()->first.m_nIndex + 1u;
  if (next <= kMaxIndex &&
      !ids.contains(sPropertyID(productBits, static_cast<unsigned short>(next))))
    return static_cast<unsigned short>(next);
  std::bitset<kMaxIndex + 1> used;
  for (auto const& entry : ids)
    if (entry.first.m_nProductID == productBits)
      used.set(entry.first.m_nIndex);
  for (unsigned short index = 1; index <= kMaxIndex; ++index)
    if (!used[index])
      return index;
  return 0;
}

// The id of `name` under `product` in the scheme of class `type`, assigned on
// first use. Stream schemes are merged by their own class type, so this does
// not go through a collection's object.
sPropertyID AssignInClass(eGBMDataType type, std::wstring const& product, unsigned char productID,
                          std::wstring const& name) {
  SchemeIDName& scheme = CPropertyCollection::m_mapAllClassScheme[type]
                             .m_mapProductScheme.try_emplace(product)
                             .first->second;
  const auto found = scheme.m_mapNameToID.find(name);
  if (found != scheme.m_mapNameToID.end())
    return found->second;
  if (productID == 0)
    productID = CPropertyCollection::AssignProducutID(product);
  const unsigned char bits = productID & kProductBits;
  const unsigned short index = NewIndex(scheme, bits);
  if (index == 0)
    return sPropertyID();
  const sPropertyID id(bits, index);
  scheme.m_mapNameToID.emplace(name, id);
  scheme.m_mapIDToName.emplace(id, name);
  return id;
}

// Whether another entry may be read. Devices that know their size stop the
// loops of a corrupt stream at its end; the callers also stop as soon as an
// entry consumes nothing, which covers devices that cannot tell.
bool HasBytes(GDbArchive& ar) {
  GIODevice* const device = ar.GetDevice();
  return device && device->RemainingSize() != 0;
}

// --- Reading a class scheme ------------------------------------------------------

struct StreamProduct {
  std::wstring name;
  std::vector<std::pair<sPropertyID, std::wstring>> pairs;
};

void ReadProductTable(GDbArchive& ar) {
  int count = 0;
  ar >> count;
  std::map<std::wstring, unsigned char> table;
  std::bitset<256> used;
  bool valid = true;
  for (int i = 0; i < count && HasBytes(ar); ++i) {
    const long long before = ar.DevicePos();
    std::wstring name;
    unsigned char number = 0;
    ar >> name >> number;
    if (ar.DevicePos() <= before)
      break;
    // Numbers are unique and start at 1; a table that breaks this would make
    // AssignProducutID hand out numbers already in use.
    if (number == 0 || used[number] || !table.emplace(std::move(name), number).second)
      valid = false;
    used.set(number);
  }
  auto& process = CPropertyCollection::m_mapAllProducutID;
  if (process.empty() && valid)
    process = std::move(table);
}

std::vector<StreamProduct> ReadProducts(GDbArchive& ar) {
  std::vector<StreamProduct> products;
  int productCount = 0;
  ar >> productCount;
  for (int p = 0; p < productCount && HasBytes(ar); ++p) {
    const long long productStart = ar.DevicePos();
    StreamProduct product;
    int idCount = 0;
    ar >> product.name >> idCount;
    for (int i = 0; i < idCount && HasBytes(ar); ++i) {
      const long long before = ar.DevicePos();
      unsigned short stored = 0;
      std::wstring name;
      ar >> stored >> name;
      if (ar.DevicePos() <= before)
        break;
      const sPropertyID id(stored);
      if (id.m_nIndex != 0) // index 0 names no property
        product.pairs.emplace_back(id, std::move(name));
    }
    if (ar.DevicePos() <= productStart)
      break;
    products.push_back(std::move(product));
  }
  return products;
}

// Numbers the stream's products in the process, and tells whether the stream's
// ids can be taken over as they are: every id carries the process's number
// for its product, and no product, id or name appears twice.
bool NumberProductsAndCheck(std::vector<StreamProduct> const& products) {
  bool usable = true;
  std::set<std::wstring_view> productNames;
  for (StreamProduct const& product : products) {
    const unsigned char bits = CPropertyCollection::AssignProducutID(product.name) & kProductBits;
    if (!productNames.insert(product.name).second)
      usable = false;
    std::set<unsigned short> ids;
    std::set<std::wstring_view> names;
    for (auto const& [id, name] : product.pairs) {
      if (id.m_nProductID != bits || !ids.insert(id.Value()).second || !names.insert(name).second) {
        usable = false;
        break;
      }
    }
  }
  return usable;
}

void ReadClassScheme(GDbArchive& ar) {
  bool due = false;
  ar >> due;
  if (!due)
    return;
  bool first = false;
  ar >> first;
  if (first)
    ReadProductTable(ar);
  int rawType = GBM_NONE;
  ar >> rawType;
  const auto type = static_cast<eGBMDataType>(rawType);
  const std::vector<StreamProduct> products = ReadProducts(ar);

  auto& classes = CPropertyCollection::m_mapAllClassScheme;
  const bool known = classes.contains(type);
  // A new class's products are numbered before anything is decided, so that
  // a product the process first meets here keeps the number its ids were
  // checked against.
  const bool usable = !known && NumberProductsAndCheck(products);
  if (!known && usable) {
    CPropertyCollection::sOneClassAllScheme adopted;
    for (StreamProduct const& product : products) {
      SchemeIDName& scheme = adopted.m_mapProductScheme[product.name];
      for (auto const& [id, name] : product.pairs) {
        scheme.m_mapIDToName.emplace(id, name);
        scheme.m_mapNameToID.emplace(name, id);
      }
    }
    classes.emplace(type, std::move(adopted));
    // Ids now mean what the stream says; a map left from an earlier scheme
    // of this class (before the tables were cleared) no longer applies.
    if (auto* stale = ar.GetMapPropertyID(type, false))
      stale->clear();
    return;
  }
  for (StreamProduct const& product : products) {
    for (auto const& [stored, name] : product.pairs) {
      const sPropertyID current = AssignInClass(type, product.name, 0, name);
      // A name that got no id maps to 0, so that its values are dropped
      // rather than left under an id that may name another property.
      if (current.Value() != stored.Value())
        (*ar.GetMapPropertyID(type, true))[stored.Value()] = current.Value();
      else if (auto* map = ar.GetMapPropertyID(type, false))
        map->erase(stored.Value());
    }
  }
}

// --- Reading values ----------------------------------------------------------------------

using Translation = std::map<unsigned short, unsigned short>;
using ValueMap = std::map<sPropertyID, CVariant>;

// The id that a stored id stands for in this process; a translation to 0
// means that the name got no id here.
unsigned short Translate(Translation const* translation, unsigned short stored) {
  if (!translation)
    return stored;
  const auto found = translation->find(stored);
  return found == translation->end() ? stored : found->second;
}

void ReadValues(GDbArchive& ar, Translation const* translation, ValueMap& values) {
  // The nodes of the values being replaced are reused, so that reading into
  // a collection that already holds values allocates nothing for the map.
  ValueMap spare;
  spare.swap(values);
  int count = 0;
  ar >> count;
  CVariant dropped;
  for (int i = 0; i < count && HasBytes(ar); ++i) {
    const long long before = ar.DevicePos();
    unsigned short stored = 0;
    ar >> stored;
    const unsigned short id = Translate(translation, stored);
    // Each value is read straight into its node, which spares a copy of heap
    // payloads. Ids normally come in ascending order, so the node goes at the
    // end without a search; a repeated id replaces the earlier value.
    CVariant* target = &dropped;
    ValueMap::iterator added = values.end();
    // Only a translation can drop a value: a stored 0 is kept as the
    // id-based operations allow it.
    if (id != 0 || stored == 0) {
      const sPropertyID key(id);
      auto place = values.end();
      if (!values.empty() && !(std::prev(values.end())->first < key))
        place = values.lower_bound(key);
      if (place != values.end() && place->first == key) {
        target = &place->second;
      } else if (!spare.empty()) {
        auto node = spare.extract(spare.begin());
        node.key() = key;
        added = values.insert(place, std::move(node));
      } else {
        added = values.try_emplace(place, key);
      }
      if (added != values.end())
        target = &added->second;
    }
    target->Serialize(ar);
    if (ar.DevicePos() <= before) {
      if (added != values.end())
        values.erase(added);
      break;
    }
  }
}

} // namespace

// --- Construction and copying ----------------------------------------------------------

CPropertyCollection::CPropertyCollection(IBase* object)
    : m_itCurrent(m_mapProperty.end()), m_pObject(object), m_strActiveProduct(L"ZRN"),
      m_nActiveProductID(AssignProducutID(L"ZRN")) {}

CPropertyCollection::CPropertyCollection(CPropertyCollection const& other)
    : m_mapProperty(other.m_mapProperty), m_itCurrent(m_mapProperty.end()),
      m_pObject(other.m_pObject), m_strActiveProduct(other.m_strActiveProduct),
      m_nActiveProductID(other.m_nActiveProductID) {
  if (other.m_itCurrent != other.m_mapProperty.end())
    m_itCurrent = m_mapProperty.find(other.m_itCurrent->first);
}

CPropertyCollection& CPropertyCollection::operator=(CPropertyCollection const& other) {
  CopyFrom(other);
  return *this;
}

CPropertyCollection::~CPropertyCollection() = default;

void CPropertyCollection::CopyFrom(CPropertyCollection const& other) {
  if (&other == this)
    return;
  m_mapProperty = other.m_mapProperty;
  m_itCurrent = m_mapProperty.end();
}

void CPropertyCollection::SetObject(IBase* object) { m_pObject = object; }

// --- Schemes -----------------------------------------------------------------------------

unsigned char CPropertyCollection::AssignProducutID(std::wstring const& product) {
  const auto hint = m_mapAllProducutID.lower_bound(product);
  if (hint != m_mapAllProducutID.end() && hint->first == product)
    return hint->second;
  unsigned char number = 1;
  if (!m_mapAllProducutID.empty()) {
    std::bitset<256> used;
    unsigned char largest = 0;
    for (auto const& entry : m_mapAllProducutID) {
      used.set(entry.second);
      largest = std::max(largest, entry.second);
    }
    if (largest < 255) {
      number = static_cast<unsigned char>(largest + 1);
    } else {
      // The numbers must stay unique, so the count wraps into the gaps.
      number = 0;
      for (unsigned candidate = 1; candidate <= 255 && number == 0; ++candidate)
        if (!used[candidate])
          number = static_cast<unsigned char>(candidate);
      if (number == 0)
        return 0;
    }
  }
  m_mapAllProducutID.emplace_hint(hint, product, number);
  return number;
}

void CPropertyCollection::SetActiveProduct(std::wstring const& product) {
  m_nActiveProductID = AssignProducutID(product);
  m_strActiveProduct = product;
}

CPropertyCollection::sPropertyID CPropertyCollection::AssignPropertyID(std::wstring const& product,
                                                                       unsigned char productID,
                                                                       std::wstring const& name) {
  if (!m_pObject)
    return sPropertyID();
  return AssignInClass(m_pObject->GetObjectType(), product, productID, name);
}

CPropertyCollection::sPropertyID CPropertyCollection::GetPropertyID(std::wstring const& name) {
  sOneClassSchemeIDName const* scheme = FindActiveSchemeIDName();
  if (!scheme)
    return sPropertyID();
  const auto found = scheme->m_mapNameToID.find(name);
  return found == scheme->m_mapNameToID.end() ? sPropertyID() : found->second;
}

void CPropertyCollection::GetPropertyName(sPropertyID id, std::wstring& product,
                                          std::wstring& name) {
  product.clear();
  name.clear();
  if (!m_pObject)
    return;
  const auto found = m_mapAllClassScheme.find(m_pObject->GetObjectType());
  if (found == m_mapAllClassScheme.end())
    return;
  for (auto const& [productName, scheme] : found->second.m_mapProductScheme) {
    const auto entry = scheme.m_mapIDToName.find(id);
    if (entry != scheme.m_mapIDToName.end()) {
      product = productName;
      name = entry->second;
      return;
    }
  }
}

CPropertyCollection::sOneClassSchemeIDName* CPropertyCollection::FindActiveSchemeIDName() {
  if (!m_pObject)
    return nullptr;
  const auto found = m_mapAllClassScheme.find(m_pObject->GetObjectType());
  if (found == m_mapAllClassScheme.end())
    return nullptr;
  return &found->second.m_mapProductScheme.try_emplace(m_strActiveProduct).first->second;
}

void CPropertyCollection::ClearPropertyScheme() {
  m_mapAllClassScheme.clear();
  m_mapAllProducutID.clear();
}

// --- Values ------------------------------------------------------------------------------

void CPropertyCollection::SetProperty(unsigned short id, CVariant const& value) {
  m_mapProperty.insert_or_assign(sPropertyID(id), value);
}

void CPropertyCollection::SetProperty(std::wstring const& name, CVariant const& value) {
  const sPropertyID id = AssignPropertyID(m_strActiveProduct, m_nActiveProductID, name);
  if (id.Value() != 0)
    m_mapProperty.insert_or_assign(id, value);
}

CVariant CPropertyCollection::GetProperty(unsigned short id) {
  const auto found = m_mapProperty.find(sPropertyID(id));
  return found == m_mapProperty.end() ? CVariant() : found->second;
}

CVariant CPropertyCollection::GetProperty(std::wstring const& name) {
  const sPropertyID id = GetPropertyID(name);
  if (id.Value() == 0)
    return CVariant();
  const auto found = m_mapProperty.find(id);
  return found == m_mapProperty.end() ? CVariant() : found->second;
}

void CPropertyCollection::RemoveProperty(unsigned short id) {
  const auto found = m_mapProperty.find(sPropertyID(id));
  if (found == m_mapProperty.end())
    return;
  // Keeps an iteration in progress valid.
  if (found == m_itCurrent)
    m_itCurrent = m_mapProperty.erase(found);
  else
    m_mapProperty.erase(found);
}

void CPropertyCollection::RemoveProperty(std::wstring const& name) {
  const sPropertyID id = GetPropertyID(name);
  if (id.Value() != 0)
    RemoveProperty(id.Value());
}

void CPropertyCollection::First() { m_itCurrent = m_mapProperty.begin(); }

bool CPropertyCollection::Next(std::wstring& product, std::wstring& name, CVariant& value) {
  if (m_itCurrent == m_mapProperty.end())
    return false;
  GetPropertyName(m_itCurrent->first, product, name);
  value = m_itCurrent->second;
  ++m_itCurrent;
  return true;
}

// --- Archiving ---------------------------------------------------------------------------

bool CPropertyCollection::SerializePropertyScheme(GDbArchive& ar) {
  if (ar.IsLoading()) {
    ReadClassScheme(ar);
    return true;
  }
  std::set<eGBMDataType>& archived = ar.GetArchivedPropertyScheme();
  const eGBMDataType type = m_pObject ? m_pObject->GetObjectType() : GBM_NONE;
  sOneClassAllScheme const* classScheme = nullptr;
  if (m_pObject && !archived.contains(type)) {
    const auto found = m_mapAllClassScheme.find(type);
    if (found != m_mapAllClassScheme.end())
      classScheme = &found->second;
  }
  const bool due = classScheme != nullptr;
  ar << due;
  if (!due)
    return true;
  const bool first = archived.empty();
  ar << first;
  if (first) {
    ar << static_cast<int>(m_mapAllProducutID.size());
    for (auto const& [product, number] : m_mapAllProducutID)
      ar << product << number;
  }
  int rawType = type;
  ar.WriteRawData(&rawType, sizeof rawType);
  ar << static_cast<int>(classScheme->m_mapProductScheme.size());
  for (auto const& [product, scheme] : classScheme->m_mapProductScheme) {
    ar << product << static_cast<int>(scheme.m_mapIDToName.size());
    for (auto const& [id, name] : scheme.m_mapIDToName)
      ar << id.Value() << name;
  }
  archived.insert(type);
  return true;
}

bool CPropertyCollection::Serialize(GDbArchive& ar) {
  SerializePropertyScheme(ar);
  if (!ar.IsLoading()) {
    ar << static_cast<int>(m_mapProperty.size());
    for (auto& [id, value] : m_mapProperty) {
      ar << id.Value();
      value.Serialize(ar);
    }
    return true;
  }

  const Translation* translation =
      m_pObject ? ar.GetMapPropertyID(m_pObject->GetObjectType(), false) : nullptr;
  m_itCurrent = m_mapProperty.end();
  ReadValues(ar, translation, m_mapProperty);
  return true;
}

} // namespace zrn

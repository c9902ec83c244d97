#include <zrn/Profile/ValistStream.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

namespace zrn {

namespace {

// The pool offset of a string must fit the 32 bits that an unresolved slot
// keeps for it.
constexpr std::size_t kMaxPoolSize = std::numeric_limits<int>::max();

} // namespace

ValistStream::ValistStream() : m_bResolved(false) {}

ValistStream::ValistStream(ValistStream const& other)
    : m_strArgs(other.m_strArgs), m_strPool(other.m_strPool),
      m_vecStringSlots(other.m_vecStringSlots), m_bResolved(other.m_bResolved) {
  Rebase(other.m_strPool.data());
}

ValistStream::ValistStream(ValistStream&& other) noexcept
    : m_strArgs(std::move(other.m_strArgs)), m_vecStringSlots(std::move(other.m_vecStringSlots)),
      m_bResolved(other.m_bResolved) {
  // A short pool lives inside the string object and moves to a new address.
  const char* const oldPool = other.m_strPool.data();
  m_strPool = std::move(other.m_strPool);
  Rebase(oldPool);
  other.Clear();
}

ValistStream& ValistStream::operator=(ValistStream const& other) {
  if (this != &other)
    *this = ValistStream(other);
  return *this;
}

ValistStream& ValistStream::operator=(ValistStream&& other) noexcept {
  if (this == &other)
    return *this;
  const char* const oldPool = other.m_strPool.data();
  m_strArgs = std::move(other.m_strArgs);
  m_strPool = std::move(other.m_strPool);
  m_vecStringSlots = std::move(other.m_vecStringSlots);
  m_bResolved = other.m_bResolved;
  Rebase(oldPool);
  other.Clear();
  return *this;
}

ValistStream::~ValistStream() = default;

void ValistStream::Clear() {
  m_strArgs.clear();
  m_strPool.clear();
  m_vecStringSlots.clear();
  m_bResolved = false;
}

void ValistStream::AppendSlot(unsigned long long bits) {
  char slot[kSlotSize];
  std::memcpy(slot, &bits, kSlotSize);
  m_strArgs.append(slot, kSlotSize);
}

ValistStream& ValistStream::AppendInteger(long long value) {
  AppendSlot(static_cast<unsigned long long>(value));
  return *this;
}

ValistStream& ValistStream::AppendUnsigned(unsigned long long value) {
  AppendSlot(value);
  return *this;
}

ValistStream& ValistStream::AppendDouble(double value) {
  unsigned long long bits;
  std::memcpy(&bits, &value, sizeof bits);
  AppendSlot(bits);
  return *this;
}

ValistStream& ValistStream::AppendPointer(void const* value) {
  AppendSlot(reinterpret_cast<std::uintptr_t>(value));
  return *this;
}

ValistStream& ValistStream::AppendString(char const* text) {
  if (!text)
    return AppendPointer(nullptr);
  return AppendString(std::string_view(text));
}

ValistStream& ValistStream::AppendString(std::string_view text) {
  // A string argument ends at its first NUL, as it would in C.
  text = text.substr(0, std::min(text.size(), text.find('\0')));
  if (m_strPool.size() + text.size() + 1 > kMaxPoolSize)
    return AppendPointer(nullptr);
  if (m_bResolved)
    Unresolve();
  const auto poolOffset = static_cast<std::uint32_t>(m_strPool.size());
  m_strPool.append(text).push_back('\0');
  m_vecStringSlots.push_back(static_cast<int>(m_strArgs.size()));
  AppendSlot(poolOffset);
  return *this;
}

void ValistStream::Resolve() {
  if (m_bResolved)
    return;
  for (int slotOffset : m_vecStringSlots) {
    std::int32_t poolOffset;
    std::memcpy(&poolOffset, m_strArgs.data() + slotOffset, sizeof poolOffset);
    char const* pointer = m_strPool.data() + poolOffset;
    std::memcpy(m_strArgs.data() + slotOffset, &pointer, kSlotSize);
  }
  m_bResolved = true;
}

void ValistStream::Unresolve() {
  for (int slotOffset : m_vecStringSlots) {
    char const* pointer;
    std::memcpy(&pointer, m_strArgs.data() + slotOffset, kSlotSize);
    const auto poolOffset = static_cast<unsigned long long>(pointer - m_strPool.data());
    std::memcpy(m_strArgs.data() + slotOffset, &poolOffset, kSlotSize);
  }
  m_bResolved = false;
}

void ValistStream::Rebase(char const* oldPool) {
  if (!m_bResolved || oldPool == m_strPool.data())
    return;
  for (int slotOffset : m_vecStringSlots) {
    char const* pointer;
    std::memcpy(&pointer, m_strArgs.data() + slotOffset, kSlotSize);
    pointer = m_strPool.data() + (pointer - oldPool);
    std::memcpy(m_strArgs.data() + slotOffset, &pointer, kSlotSize);
  }
}

bool ValistStream::IsStringSlot(std::size_t slotOffset) const {
  return std::binary_search(m_vecStringSlots.begin(), m_vecStringSlots.end(),
                            static_cast<int>(slotOffset));
}

unsigned long long ValistStream::SlotBits(std::size_t index) const {
  unsigned long long bits;
  std::memcpy(&bits, m_strArgs.data() + index * kSlotSize, kSlotSize);
  return bits;
}

std::string_view ValistStream::StringAt(std::size_t index) const {
  const unsigned long long bits = SlotBits(index);
  // Both forms are turned into a pool offset and checked against the pool,
  // so that no slot content can lead a read outside it.
  unsigned long long poolOffset;
  if (m_bResolved)
    poolOffset = bits - reinterpret_cast<std::uintptr_t>(m_strPool.data());
  else
    poolOffset = static_cast<std::uint32_t>(bits);
  if (poolOffset >= m_strPool.size())
    return {};
  char const* const text = m_strPool.data() + poolOffset;
  const std::size_t room = m_strPool.size() - poolOffset;
  const void* const nul = std::memchr(text, '\0', room);
  return {text, nul ? static_cast<std::size_t>(static_cast<char const*>(nul) - text) : room};
}

} // namespace zrn

// The per-thread parameter stream that fills the placeholders of error
// messages.
//
// A ValistStream lays out arguments as a variable argument list of the 64-bit
// calling convention: one 8-byte slot per argument, in placeholder order.
// String arguments are copied into a pool owned by the stream, so that callers
// may pass temporaries. Format walks a printf-style format over the slots.
#ifndef ZRN_PROFILE_VALISTSTREAM_H
#define ZRN_PROFILE_VALISTSTREAM_H

#include <zrn/Export.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace zrn {

/// Arguments for one printf-style format, in 8-byte slots.
///
/// Layout: the argument bytes; the string pool (every string argument followed
/// by its NUL); the string slot list (the byte offset of every string
/// argument's slot); and the resolved flag. Until Resolve, the low 32 bits of
/// a string slot hold the string's offset in the pool; afterwards the whole
/// slot holds a pointer to it. Appending a string to a resolved stream turns
/// the pointers back into offsets first, so they never dangle.
///
/// A stream is used by one thread at a time.
class ZRN_API ValistStream {
public:
  ValistStream();
  ValistStream(ValistStream const& other);
  ValistStream(ValistStream&& other) noexcept;
  ValistStream& operator=(ValistStream const& other);
  ValistStream& operator=(ValistStream&& other) noexcept;
  ~ValistStream();

  /// Forgets every argument: the stream starts afresh.
  void Clear();

  /// Appends a signed integer (for %d, %i, %c and the like).
  ValistStream& AppendInteger(long long value);
  /// Appends an unsigned integer (for %u, %x, %o and the like).
  ValistStream& AppendUnsigned(unsigned long long value);
  /// Appends a floating-point number (for %f, %e, %g).
  ValistStream& AppendDouble(double value);
  /// Appends a pointer (for %p).
  ValistStream& AppendPointer(void const* value);
  /// Appends a copy of `text` for %s.
  ValistStream& AppendString(std::string_view text);
  /// Appends a copy of `text` for %s; a null `text` prints as "(null)".
  ValistStream& AppendString(char const* text);

  /// Appends `value` by its type: strings, integers, floating-point numbers
  /// and other pointers each go to the matching Append function.
  template <class T> ValistStream& Append(T const& value);

  /// Appends `value` (see Append).
  template <class T> ValistStream& operator<<(T const& value) { return Append(value); }

  /// Turns the string slots into pointers into the pool (once).
  void Resolve();

  /// Formats `format` with the slots into `buffer` of `size` bytes, always
  /// NUL-terminated when `size` is not 0, and returns the length written.
  ///
  /// Conversions: d i u x X o c s p f F e E g G a A and %%, with the flags
  /// - + space # 0, a width and a precision (digits or *), and the length
  /// prefixes hh h l ll L I I32 I64 j z t w. Output that does not fit is cut.
  /// A conversion with no slot left, an unknown conversion and an unfinished
  /// one are copied as they stand and take no slot. %s on a slot that is not a
  /// string argument prints "(null)" for 0 and "(?)" otherwise; %p prints 16
  /// upper-case hexadecimal digits. Never reads outside the stream.
  std::size_t Format(char const* format, char* buffer, std::size_t size) const;

  std::size_t ArgumentCount() const { return m_strArgs.size() / kSlotSize; }
  /// The argument bytes, 8 per slot.
  std::string const& GetArgumentBytes() const { return m_strArgs; }
  /// The characters of every string argument, each followed by a NUL.
  std::string const& GetStringPool() const { return m_strPool; }
  /// The byte offset of every string argument's slot, in argument order.
  std::vector<int> const& GetStringSlots() const { return m_vecStringSlots; }
  /// Whether Resolve has turned the string slots into pointers.
  bool IsResolved() const { return m_bResolved; }

  /// Bytes per argument slot.
  static constexpr std::size_t kSlotSize = 8;

private:
  void AppendSlot(unsigned long long bits);
  void Unresolve();
  void Rebase(char const* oldPool);
  bool IsStringSlot(std::size_t slotOffset) const;
  unsigned long long SlotBits(std::size_t index) const;
  std::string_view StringAt(std::size_t index) const;

  friend class ValistFormatter;

  std::string m_strArgs;
  std::string m_strPool;
  std::vector<int> m_vecStringSlots;
  bool m_bResolved;
};

template <class T> ValistStream& ValistStream::Append(T const& value) {
  using V = std::decay_t<T>;
  if constexpr (std::is_same_v<V, char*> || std::is_same_v<V, char const*>)
    return AppendString(static_cast<char const*>(value));
  else if constexpr (std::is_convertible_v<T const&, std::string_view>)
    return AppendString(std::string_view(value));
  else if constexpr (std::is_floating_point_v<V>)
    return AppendDouble(static_cast<double>(value));
  else if constexpr (std::is_integral_v<V> && std::is_signed_v<V>)
    return AppendInteger(static_cast<long long>(value));
  else if constexpr (std::is_integral_v<V> || std::is_enum_v<V>)
    return AppendUnsigned(static_cast<unsigned long long>(value));
  else if constexpr (std::is_pointer_v<V> || std::is_null_pointer_v<V>)
    return AppendPointer(static_cast<void const*>(value));
  else
    static_assert(!sizeof(T), "ValistStream cannot hold this type");
}

} // namespace zrn

#endif // ZRN_PROFILE_VALISTSTREAM_H

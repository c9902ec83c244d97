// The persistent data of every object of the frame: a few named numbers.
#ifndef ZRN_EXAMPLES_SAMPLE_HOST_VALUES_H
#define ZRN_EXAMPLES_SAMPLE_HOST_VALUES_H

#include <zrn/Object/Entity.h>

#include <array>
#include <cstddef>
#include <span>

/// The names of one class's values, in slot order (static text).
using ValueNames = std::span<char const* const>;

/// An entity's impl object: slots of numbers, each named by the entity's
/// class. Archived as one object of version 1 whose block 1 lists (name,
/// value) pairs; a reader fills the slots whose names it knows and skips the
/// others, so a later version of the host may add or drop values.
class CValuesImpl : public zrn::IBaseEntityImpl {
public:
  /// The most values a class may name.
  static constexpr std::size_t kMaxValues = 5;

  /// All values 0; `names` must outlive the object.
  explicit CValuesImpl(ValueNames names);

  double Get(std::size_t slot) const { return m_values.at(slot); }
  /// Sets one value; true when it changed.
  bool Set(std::size_t slot, double value);
  ValueNames Names() const { return m_names; }

  bool Serialize(zrn::GDbArchive& ar) override;

private:
  enum : unsigned char { kValuesBlock = 1 };

  void WriteValues(zrn::GDbArchive& ar) const;
  void ReadValues(zrn::GDbArchive& ar);

  ValueNames m_names;
  std::array<double, kMaxValues> m_values{};
};

#endif

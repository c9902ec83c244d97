// A four-channel colour of 8 bits a channel.
#ifndef ZRN_PROPERTY_COLOR_H
#define ZRN_PROPERTY_COLOR_H

#include <zrn/Export.h>

namespace zrn {

/// Red, green, blue and alpha, in this order in memory; alpha 255 is opaque.
///
/// A plain value: copied by value, compared channel by channel, convertible to
/// and from 32-bit integers in three channel orders and to and from four
/// floats from 0 to 1. A variant holds a colour as its ToInteger form.
class ZRN_API CColor {
public:
  /// Opaque black.
  constexpr CColor() : m_nRed(0), m_nGreen(0), m_nBlue(0), m_nAlpha(255) {}
  constexpr CColor(unsigned char r, unsigned char g, unsigned char b, unsigned char a)
      : m_nRed(r), m_nGreen(g), m_nBlue(b), m_nAlpha(a) {}

  void Set(unsigned char r, unsigned char g, unsigned char b, unsigned char a) {
    *this = CColor(r, g, b, a);
  }

  unsigned char GetRed() const { return m_nRed; }
  unsigned char GetGreen() const { return m_nGreen; }
  unsigned char GetBlue() const { return m_nBlue; }
  unsigned char GetAlpha() const { return m_nAlpha; }

  bool operator==(CColor const& other) const {
    return m_nRed == other.m_nRed && m_nGreen == other.m_nGreen && m_nBlue == other.m_nBlue &&
           m_nAlpha == other.m_nAlpha;
  }
  bool operator!=(CColor const& other) const { return !(*this == other); }

  /// The integer whose bytes in memory are R, G, B, A.
  unsigned int ToInteger() const;
  /// The integer whose bytes in memory are A, R, G, B.
  unsigned int ToIntegerARGB() const;
  /// The integer whose bytes in memory are A, B, G, R.
  unsigned int ToIntegerABGR() const;
  /// The inverse of ToInteger.
  CColor& FromInteger(unsigned int value);
  /// The inverse of ToIntegerARGB.
  CColor& FromIntegerARGB(unsigned int value);
  /// The inverse of ToIntegerABGR.
  CColor& FromIntegerABGR(unsigned int value);

  /// Red, green, blue and alpha as channel / 255, in single precision.
  void MakeFloatArray(float* out) const;
  /// `color` as four floats.
  static void MakeFloatArray(CColor const& color, float* out);
  /// Sets each channel to the low 8 bits of value x 255 (single precision),
  /// truncated toward zero: values are neither rounded nor clamped.
  void SetByFloatArray(float const* in);
  /// A colour from four floats, as SetByFloatArray.
  static CColor MakeFromFloatArray(float const* in);

  static const CColor White;
  static const CColor Black;
  static const CColor Red;
  static const CColor Green;
  static const CColor Blue;
  static const CColor Yellow;
  static const CColor Magenta;
  static const CColor Cyan;
  static const CColor DarkSlateGray;
  static const CColor Teal;
  static const CColor PaleGodenrod;
  static const CColor Orange;
  static const CColor Sienna;
  static const CColor FireBrick;
  static const CColor Tan;
  static const CColor SteelBlue;
  static const CColor OliveDrab;
  static const CColor WhiteSmoke;
  static const CColor GainSboro;
  static const CColor LightGray;
  static const CColor Silver;
  static const CColor DarkGray;
  static const CColor Gray;
  static const CColor DimGray;
  /// Transparent black: alpha 0.
  static const CColor Zero;

private:
  unsigned char m_nRed;
  unsigned char m_nGreen;
  unsigned char m_nBlue;
  unsigned char m_nAlpha;
};

} // namespace zrn

#endif // ZRN_PROPERTY_COLOR_H

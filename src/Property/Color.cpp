#include <zrn/IO/EndianInfo.h>
#include <zrn/Property/Color.h>

#include <cmath>
#include <cstdint>

namespace zrn {

// Constant data: ready before any code of the library runs.
constinit const CColor CColor::White(255, 255, 255, 255);
constinit const CColor CColor::Black(0, 0, 0, 255);
constinit const CColor CColor::Red(255, 0, 0, 255);
constinit const CColor CColor::Green(0, 255, 0, 255);
constinit const CColor CColor::Blue(0, 0, 255, 255);
constinit const CColor CColor::Yellow(255, 255, 0, 255);
constinit const CColor CColor::Magenta(255, 0, 255, 255);
constinit const CColor CColor::Cyan(0, 255, 255, 255);
constinit const CColor CColor::DarkSlateGray(47, 79, 79, 255);
constinit const CColor CColor::Teal(0, 128, 128, 255);
constinit const CColor CColor::PaleGodenrod(238, 232, 170, 255);
constinit const CColor CColor::Orange(255, 165, 0, 255);
constinit const CColor CColor::Sienna(160, 82, 45, 255);
constinit const CColor CColor::FireBrick(178, 34, 34, 255);
constinit const CColor CColor::Tan(210, 180, 140, 255);
constinit const CColor CColor::SteelBlue(70, 130, 180, 255);
constinit const CColor CColor::OliveDrab(85, 107, 47, 255);
constinit const CColor CColor::WhiteSmoke(245, 245, 245, 255);
constinit const CColor CColor::GainSboro(220, 220, 220, 255);
constinit const CColor CColor::LightGray(211, 211, 211, 255);
constinit const CColor CColor::Silver(192, 192, 192, 255);
constinit const CColor CColor::DarkGray(169, 169, 169, 255);
constinit const CColor CColor::Gray(128, 128, 128, 255);
constinit const CColor CColor::DimGray(105, 105, 105, 255);
constinit const CColor CColor::Zero(0, 0, 0, 0);

namespace {

// The integer whose bytes in memory are b0, b1, b2, b3 (lowest address
// first), on a machine of either byte order.
unsigned int Pack(unsigned b0, unsigned b1, unsigned b2, unsigned b3) {
  if (CEndianInfoMananger::GetInstance()->GetIsLittleEndian())
    return b3 << 24 | b2 << 16 | b1 << 8 | b0;
  return b0 << 24 | b1 << 16 | b2 << 8 | b3;
}

// Byte `i` (lowest address first) of the integer `value`.
unsigned char ByteAt(unsigned int value, int i) {
  const int shift = CEndianInfoMananger::GetInstance()->GetIsLittleEndian() ? 8 * i : 8 * (3 - i);
  return static_cast<unsigned char>(value >> shift);
}

// value x 255 truncated toward zero, low 8 bits. Values whose product has no
// 32-bit integer (NaN, huge) give what the processor's truncation gives for
// them, the most negative integer, whose low 8 bits are 0.
unsigned char ChannelOf(float value) {
  const float scaled = value * 255.0f;
  if (!(std::fabs(scaled) < 2147483648.0f))
    return 0;
  return static_cast<unsigned char>(static_cast<std::int32_t>(scaled) & 0xFF);
}

} // namespace

unsigned int CColor::ToInteger() const { return Pack(m_nRed, m_nGreen, m_nBlue, m_nAlpha); }

unsigned int CColor::ToIntegerARGB() const { return Pack(m_nAlpha, m_nRed, m_nGreen, m_nBlue); }

unsigned int CColor::ToIntegerABGR() const { return Pack(m_nAlpha, m_nBlue, m_nGreen, m_nRed); }

CColor& CColor::FromInteger(unsigned int value) {
  Set(ByteAt(value, 0), ByteAt(value, 1), ByteAt(value, 2), ByteAt(value, 3));
  return *this;
}

CColor& CColor::FromIntegerARGB(unsigned int value) {
  Set(ByteAt(value, 1), ByteAt(value, 2), ByteAt(value, 3), ByteAt(value, 0));
  return *this;
}

CColor& CColor::FromIntegerABGR(unsigned int value) {
  Set(ByteAt(value, 3), ByteAt(value, 2), ByteAt(value, 1), ByteAt(value, 0));
  return *this;
}

void CColor::MakeFloatArray(float* out) const {
  out[0] = static_cast<float>(m_nRed) / 255.0f;
  out[1] = static_cast<float>(m_nGreen) / 255.0f;
  out[2] = static_cast<float>(m_nBlue) / 255.0f;
  out[3] = static_cast<float>(m_nAlpha) / 255.0f;
}

void CColor::MakeFloatArray(CColor const& color, float* out) { color.MakeFloatArray(out); }

void CColor::SetByFloatArray(float const* in) {
  Set(ChannelOf(in[0]), ChannelOf(in[1]), ChannelOf(in[2]), ChannelOf(in[3]));
}

CColor CColor::MakeFromFloatArray(float const* in) {
  CColor color;
  color.SetByFloatArray(in);
  return color;
}

} // namespace zrn

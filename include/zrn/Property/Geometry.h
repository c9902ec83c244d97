// Minimal geometric value types that a variant can take: points and vectors,
// boxes and coordinate systems. Hosts with geometry types of their own
// convert to these; a variant copies their doubles in the order given here.
#ifndef ZRN_PROPERTY_GEOMETRY_H
#define ZRN_PROPERTY_GEOMETRY_H

namespace zrn {

/// A 2D vector or point.
template <class T> struct CVec2 {
  T x{};
  T y{};
};

/// A 3D vector or point.
template <class T> struct CVec3 {
  T x{};
  T y{};
  T z{};
};

/// An axis-aligned box: its minimum corner, then its maximum corner.
template <class T> struct CBox3 {
  CVec3<T> min;
  CVec3<T> max;
};

/// A coordinate system: its origin, then its x, y and z axes.
template <class T> struct CCoord3 {
  CVec3<T> origin;
  CVec3<T> xAxis;
  CVec3<T> yAxis;
  CVec3<T> zAxis;
};

} // namespace zrn

#endif // ZRN_PROPERTY_GEOMETRY_H

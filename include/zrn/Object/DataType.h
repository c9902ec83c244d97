// Data type ids and the library's fixed-size value types.
//
// Every kind of value or object that the library stores, copies or archives
// generically is named by an eGBMDataType. Host modules add values of their
// own for their own classes.
#ifndef ZRN_OBJECT_DATATYPE_H
#define ZRN_OBJECT_DATATYPE_H

namespace zrn {

/// Data type ids (signed 32-bit). 1, 2, 14, 15 and 100 to 107 are plain values;
/// 10 to 21 are fixed-size value objects; 1000 and above are heap objects.
enum eGBMDataType : int {
  GBM_NONE = -1,          ///< no type; also "not found"
  GBM_OBJECT = 0,         ///< a plain IBase object
  GBM_INT = 1,            ///< int
  GBM_DOUBLE = 2,         ///< double
  GBM_LOCAL_BOX = 10,     ///< LocalBox
  GBM_LOCAL_VEC2D = 11,   ///< LocalVec2d
  GBM_LOCAL_VEC3D = 12,   ///< LocalVec3d
  GBM_INT64 = 14,         ///< long long
  GBM_BOOL = 15,          ///< bool
  GBM_FILE_ADDRESS = 16,  ///< FileAddress
  GBM_LOCAL_COORD3D = 21, ///< LocalCoord3d
  GBM_CHAR = 100,         ///< char
  GBM_UCHAR = 101,        ///< unsigned char
  GBM_SHORT = 102,        ///< short
  GBM_USHORT = 103,       ///< unsigned short
  GBM_UINT = 104,         ///< unsigned int
  GBM_FLOAT = 105,        ///< float
  GBM_UINT64 = 106,       ///< unsigned long long
  GBM_OBJECT_ID = 107,    ///< an object id (unsigned 64-bit)
  GBM_REF_OBJECT = 1000,  ///< a CReferenced object of an unregistered class
  GBM_STRING = 1001,      ///< std::string
  GBM_WSTRING = 1002,     ///< std::wstring
  GBM_MEM_STREAM = 1003,  ///< GMemStream
  GBM_COLOR = 1004,       ///< a colour as its 32-bit integer form
  GBM_PROJECT = 1500,     ///< IBaseProject
};

/// An axis-aligned box: six doubles, in the order the host's box gives them.
struct LocalBox {
  double values[6];
};

/// A 2D vector: two doubles.
struct LocalVec2d {
  double values[2];
};

/// A 3D vector: three doubles.
struct LocalVec3d {
  double values[3];
};

/// A coordinate system: twelve doubles, in the order the host's gives them.
struct LocalCoord3d {
  double values[12];
};

/// A position in a file or database: one 64-bit value.
struct FileAddress {
  long long value;
};

static_assert(sizeof(LocalBox) == 48 && sizeof(LocalVec2d) == 16 && sizeof(LocalVec3d) == 24 &&
              sizeof(LocalCoord3d) == 96 && sizeof(FileAddress) == 8);

} // namespace zrn

#endif // ZRN_OBJECT_DATATYPE_H

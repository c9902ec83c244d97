// Symbol visibility for the zrn shared library.
//
// The library is built with hidden visibility; everything a host may call is
// marked with ZRN_API so that it appears in libzrn.so's dynamic symbol table.
#ifndef ZRN_EXPORT_H
#define ZRN_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
/// Marks a class, function or variable as part of the library's exported API.
#define ZRN_API __attribute__((visibility("default")))
#else
#define ZRN_API
#endif

// Lock annotations live beside the export macro: every public header that
// declares a lock or the data it guards includes both.
#include <zrn/ThreadSafety.h>

#endif // ZRN_EXPORT_H

// Symbol visibility for the store component (libzrn_store.so), which is built
// with hidden visibility like the core library.
#ifndef ZRN_STORE_STOREEXPORT_H
#define ZRN_STORE_STOREEXPORT_H

#if defined(__GNUC__) || defined(__clang__)
/// Marks a class or function as part of the store's exported API.
#define ZRN_STORE_API __attribute__((visibility("default")))
#else
#define ZRN_STORE_API
#endif

#endif // ZRN_STORE_STOREEXPORT_H

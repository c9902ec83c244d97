// Work in progress.
#ifndef ZRN_INCLUDE_ZRN_TEXT_BASE64_H
#define ZRN_INCLUDE_ZRN_TEXT_BASE64_H
#endif

// Work in progress.
#ifndef ZRN_SRC_TEXT_ICONV_H
#define ZRN_SRC_TEXT_ICONV_H
#endif

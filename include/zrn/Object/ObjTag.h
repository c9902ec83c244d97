// (in progress)
#ifndef ZRN_OBJECT_OBJTAG_H
#define ZRN_OBJECT_OBJTAG_H
#endif // ZRN_OBJECT_OBJTAG_H

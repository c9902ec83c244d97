// (in progress)
#ifndef ZRN_IO_DBDEVICE_H
#define ZRN_IO_DBDEVICE_H
#endif // ZRN_IO_DBDEVICE_H

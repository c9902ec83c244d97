// (in progress)
#ifndef ZRN_IO_DATAIOFACADE_H
#define ZRN_IO_DATAIOFACADE_H
#endif // ZRN_IO_DATAIOFACADE_H

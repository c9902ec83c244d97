// (in progress)
#ifndef ZRN_REGEN_REGENATOM_H
#define ZRN_REGEN_REGENATOM_H
#endif // ZRN_REGEN_REGENATOM_H

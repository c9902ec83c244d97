// (in progress)
#ifndef ZRN_OBJECT_ENTITY_H
#define ZRN_OBJECT_ENTITY_H
#endif // ZRN_OBJECT_ENTITY_H

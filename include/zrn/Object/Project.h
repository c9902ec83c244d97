// (in progress)
#ifndef ZRN_OBJECT_PROJECT_H
#define ZRN_OBJECT_PROJECT_H
#endif // ZRN_OBJECT_PROJECT_H

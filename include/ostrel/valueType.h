/* The types of values, for plug-ins and clients; C (C11) and C++ (C++11). */
#ifndef OSTREL_VALUE_TYPE_H
#define OSTREL_VALUE_TYPE_H

#ifdef __cplusplus
enum ostrelValueType : unsigned int {
#else
typedef enum ostrelValueType {
#endif
    ostrelTypeNone = 0,
    ostrelTypeBool = 1,  /* 1 byte */
    ostrelTypeByte = 2,  /* 1 byte */
    ostrelTypeDword = 3, /* 4 bytes, unsigned, host byte order */
    ostrelTypeIP = 4,    /* text */
    ostrelTypeMAC = 5,   /* text */
    ostrelTypeString = 6 /* text */
#ifdef __cplusplus
};
#else
} ostrelValueType;
#endif

#endif

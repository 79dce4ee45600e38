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

/* A row for each but ostrelTypeNone, in the order of their numbers. ROW(NAME, SIZE, LARGEST) gets the name
 * behind "ostrelType", a number's bytes and largest value; both are 0 for a text. */
#define OSTREL_VALUE_TYPES(ROW) \
    ROW(Bool, 1, 255)           \
    ROW(Byte, 1, 255)           \
    ROW(Dword, 4, 4294967295)   \
    ROW(IP, 0, 0)               \
    ROW(MAC, 0, 0)              \
    ROW(String, 0, 0)

#endif

/* What a name may be: of a key, a structure or a template. C (C11) and C++ (C++11). */
#ifndef OSTREL_NAMES_H
#define OSTREL_NAMES_H

/* In bytes, without its NUL. Control characters are refused. */
#define OSTREL_LONGEST_NAME 127

#endif

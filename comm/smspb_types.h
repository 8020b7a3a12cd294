/* The integer names of the interface, and the marks that make a function part of it. */
#ifndef SMSPB_COMM_TYPES_H
#define SMSPB_COMM_TYPES_H

#include <stdint.h>

typedef uint8_t u8;
typedef uint16_t u16;
typedef uint32_t u32;
typedef int32_t i32;

/* Everything between these two is exported with C linkage; the rest of the library is hidden. */
#ifdef __cplusplus
#define SMSPB_BEGIN_EXPORTS                                                                        \
    extern "C" {                                                                                   \
    _Pragma("GCC visibility push(default)")
#define SMSPB_END_EXPORTS                                                                          \
    _Pragma("GCC visibility pop")                                                                  \
    }
#else
#define SMSPB_BEGIN_EXPORTS _Pragma("GCC visibility push(default)")
#define SMSPB_END_EXPORTS _Pragma("GCC visibility pop")
#endif

/* A record's size on a 32-bit target, where it is part of the interface. */
#ifdef __cplusplus
#define SMSPB_SIZE_32(type, octets)                                                                \
    static_assert(sizeof(void *) != 4 || sizeof(type) == (octets), "size of " #type)
#else
#define SMSPB_SIZE_32(type, octets)                                                                \
    _Static_assert(sizeof(void *) != 4 || sizeof(type) == (octets), "size of " #type)
#endif

#endif

// The one place where octets of a TPDU are read and written, and where a length is checked.
//
// A read past the end gives 0 and a write past the end is dropped; `pos` counts on regardless, so
// one question after the last step answers for all of them.
#ifndef SMSPB_ATLIB_OCTETS_H
#define SMSPB_ATLIB_OCTETS_H

#include <string.h>

#include "../comm/smspb_types.h"

// Before a loop whose steps are few: several at a time, where speed counts for more than size.
#ifdef __OPTIMIZE_SIZE__
#define UNROLLED(steps)
#else
#define UNROLLED_PRAGMA(text) _Pragma(#text)
#define UNROLLED(steps) UNROLLED_PRAGMA(GCC unroll steps)
#endif

struct OctetReader {
    const u8 *octets;
    u32 size, pos;
};

struct OctetWriter {
    u8 *octets;
    u32 size, pos;
};

// Wraps on purpose.
static inline u8 low8(u32 value) { return static_cast<u8>(value & 0xFF); }

static inline u8 swapNibbles(u8 octet) { return low8(static_cast<u32>(octet << 4 | octet >> 4)); }

static inline u8 octetAt(const OctetReader *r, u32 pos) {
    return pos < r->size ? r->octets[pos] : u8{0};
}

static inline u8 peekOctet(const OctetReader *r) { return octetAt(r, r->pos); }

static inline u8 takeOctet(OctetReader *r) {
    const u8 octet = peekOctet(r);
    r->pos++;
    return octet;
}

// The next `count` octets, for a coder that takes a bare pointer; null when fewer are left.
static inline const u8 *viewOctets(const OctetReader *r, u32 count) {
    return r->pos <= r->size && count <= r->size - r->pos ? r->octets + r->pos : nullptr;
}

// The next `count` octets, zeros for those that are not there.
static inline void takeOctets(OctetReader *r, u8 *out, u32 count) {
    const u32 left = r->pos < r->size ? r->size - r->pos : 0;
    const u32 held = count < left ? count : left;
    if (held != 0) { memcpy(out, r->octets + r->pos, held); }
    memset(out + held, 0, count - held);
    r->pos += count;
}

// A reader of what is left.
static inline OctetReader restOf(const OctetReader *r) {
    const u32 start = r->pos < r->size ? r->pos : r->size;
    return {r->octets + start, r->size - start, 0};
}

static inline void putOctet(OctetWriter *w, u32 value) {
    if (w->pos < w->size) { w->octets[w->pos] = low8(value); }
    w->pos++;
}

static inline void putOctets(OctetWriter *w, const u8 *octets, u32 count) {
    const u32 left = w->pos < w->size ? w->size - w->pos : 0;
    if (left != 0) { memcpy(w->octets + w->pos, octets, count < left ? count : left); }
    w->pos += count;
}

// The place of the next octets, for a coder that takes a bare pointer and writes at most `count`;
// null when fewer fit.
static inline u8 *roomFor(const OctetWriter *w, u32 count) {
    return w->pos <= w->size && count <= w->size - w->pos ? w->octets + w->pos : nullptr;
}

#endif

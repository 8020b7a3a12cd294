// The heap as the library sees it: every malloc, calloc, realloc, strdup and free of the program's
// own objects is counted (--wrap), and a chosen one fails. What libc or the C++ library takes for
// itself is not seen.
#ifndef SMSPB_TESTS_FAILING_MALLOC_H
#define SMSPB_TESTS_FAILING_MALLOC_H

#include <cstddef>
#include <vector>

namespace support {

// Counting begins anew: no failure asked for, no block taken yet, the live ones forgotten.
void resetHeap();

// The n-th allocation from now (1 is the next) gives null; those behind it succeed again.
void failAllocation(unsigned nth);
// Every allocation from the n-th on gives null.
void failAllocationsFrom(unsigned nth);
// Back to normal.
void allowAllocations();

// The sizes asked for since resetHeap, in order, refused ones included.
std::vector<std::size_t> allocationSizes();
// Blocks taken since resetHeap and not given back.
std::size_t liveBlocks();

} // namespace support

#endif

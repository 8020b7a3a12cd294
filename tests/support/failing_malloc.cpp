#include "failing_malloc.h"

#include <cstdint>
#include <cstring>
#include <mutex>
#include <set>

namespace support {
namespace {

// The containers allocate through the C++ library, which is not wrapped.
struct Heap {
    std::mutex guard;
    std::set<void *> live;
    std::vector<std::size_t> sizes;
    unsigned failAt = 0; // counted down to the failing one; 0 never fails
    bool failOn = false; // also those behind it
};

Heap &heap() {
    static auto *const instance = new Heap; // outlives every static destructor
    return *instance;
}

bool refuses(std::size_t size) {
    Heap &h = heap();
    h.sizes.push_back(size);
    if (h.failAt == 0) { return false; }
    if (h.failAt == 1) {
        if (!h.failOn) { h.failAt = 0; }
        return true;
    }
    h.failAt--;
    return false;
}

void *keep(void *block) {
    if (block != nullptr) { heap().live.insert(block); }
    return block;
}

} // namespace

void resetHeap() {
    const std::lock_guard<std::mutex> lock(heap().guard);
    heap().live.clear();
    heap().sizes.clear();
    heap().failAt = 0;
    heap().failOn = false;
}

void failAllocation(unsigned nth) {
    const std::lock_guard<std::mutex> lock(heap().guard);
    heap().failAt = nth;
    heap().failOn = false;
}

void failAllocationsFrom(unsigned nth) {
    const std::lock_guard<std::mutex> lock(heap().guard);
    heap().failAt = nth;
    heap().failOn = true;
}

void allowAllocations() { failAllocation(0); }

std::vector<std::size_t> allocationSizes() {
    const std::lock_guard<std::mutex> lock(heap().guard);
    return heap().sizes;
}

std::size_t liveBlocks() {
    const std::lock_guard<std::mutex> lock(heap().guard);
    return heap().live.size();
}

} // namespace support

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *block, std::size_t size);
void __real_free(void *block);

void *__wrap_malloc(std::size_t size);
void *__wrap_calloc(std::size_t count, std::size_t size);
void *__wrap_realloc(void *block, std::size_t size);
char *__wrap_strdup(const char *text);
void __wrap_free(void *block);

void *__wrap_malloc(std::size_t size) {
    const std::lock_guard<std::mutex> lock(support::heap().guard);
    return support::refuses(size) ? nullptr : support::keep(__real_malloc(size));
}

void *__wrap_calloc(std::size_t count, std::size_t size) {
    const std::lock_guard<std::mutex> lock(support::heap().guard);
    return support::refuses(count * size) ? nullptr : support::keep(__real_calloc(count, size));
}

void *__wrap_realloc(void *block, std::size_t size) {
    const std::lock_guard<std::mutex> lock(support::heap().guard);
    if (support::refuses(size)) { return nullptr; }
    support::heap().live.erase(block);
    return support::keep(__real_realloc(block, size));
}

char *__wrap_strdup(const char *text) {
    const std::size_t size = std::strlen(text) + 1;
    void *copy = __wrap_malloc(size);
    return copy == nullptr ? nullptr : static_cast<char *>(std::memcpy(copy, text, size));
}

void __wrap_free(void *block) {
    const std::lock_guard<std::mutex> lock(support::heap().guard);
    support::heap().live.erase(block);
    __real_free(block);
}
}

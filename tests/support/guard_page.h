// Memory whose end lies against an unreadable page: one octet too many ends the test at once, on a
// plain build and under qemu as well as under a sanitizer.
#ifndef SMSPB_TESTS_GUARD_PAGE_H
#define SMSPB_TESTS_GUARD_PAGE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace support {

// `size` writable octets between two unreadable pages, the last of them right before the second.
// Filled with 0xA5, so that what a function leaves alone can be told from what it clears.
class GuardedBytes {
public:
    explicit GuardedBytes(std::size_t size, std::uint8_t fill = 0xA5) : size_(size) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        mapped_ = (size + page - 1) / page * page + 2 * page;
        void *memory = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) { fail("mmap"); }
        base_ = static_cast<std::uint8_t *>(memory);
        if (mapped_ > 2 * page &&
            mprotect(base_ + page, mapped_ - 2 * page, PROT_READ | PROT_WRITE) != 0) {
            fail("mprotect");
        }
        if (size != 0) { std::memset(data(), fill, size); }
    }
    GuardedBytes(GuardedBytes &&other) noexcept
        : base_(std::exchange(other.base_, nullptr)), mapped_(other.mapped_), size_(other.size_) {}
    GuardedBytes(const GuardedBytes &) = delete;
    GuardedBytes &operator=(const GuardedBytes &) = delete;
    GuardedBytes &operator=(GuardedBytes &&) = delete;
    ~GuardedBytes() {
        if (base_ != nullptr) { munmap(base_, mapped_); }
    }

    std::uint8_t *data() const {
        return base_ + mapped_ - static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) - size_;
    }
    std::size_t size() const { return size_; }
    std::uint8_t &operator[](std::size_t i) const { return data()[i]; }
    std::vector<std::uint8_t> octets() const { return {data(), data() + size_}; }
    // The first `count` octets.
    std::vector<std::uint8_t> first(std::size_t count) const { return {data(), data() + count}; }

private:
    [[noreturn]] static void fail(const char *what) {
        std::perror(what);
        std::abort();
    }
    std::uint8_t *base_;
    std::size_t mapped_;
    std::size_t size_;
};

// A copy of the octets that ends at an unreadable page.
inline GuardedBytes againstGuardPage(const std::vector<std::uint8_t> &octets) {
    GuardedBytes copy(octets.size());
    if (!octets.empty()) { std::memcpy(copy.data(), octets.data(), octets.size()); }
    return copy;
}

// `count` elements of T that end at an unreadable page; for texts, records and arrays. All octets
// 0xA5 at first, zero with `cleared`.
enum class Fill { Garbage, Cleared };
template <typename T> class Guarded {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    explicit Guarded(std::size_t count = 1, Fill fill = Fill::Garbage)
        : bytes_(count * sizeof(T), fill == Fill::Cleared ? 0 : 0xA5), count_(count) {}
    explicit Guarded(const std::vector<T> &elements) : Guarded(elements.size()) {
        if (!elements.empty()) {
            std::memcpy(bytes_.data(), elements.data(), elements.size() * sizeof(T));
        }
    }
    T *get() const { return reinterpret_cast<T *>(bytes_.data()); }
    T *operator->() const { return get(); }
    T &operator*() const { return *get(); }
    T &operator[](std::size_t i) const { return get()[i]; }
    std::size_t size() const { return count_; }

private:
    GuardedBytes bytes_;
    std::size_t count_;
};

// A C string whose terminating zero is the last readable octet.
inline Guarded<char> guardedText(std::string_view text) {
    std::vector<char> characters(text.begin(), text.end());
    characters.push_back('\0');
    return Guarded<char>(characters);
}

} // namespace support

#endif

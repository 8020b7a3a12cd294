// What the fuzz targets share. Inputs and outputs lie in heap blocks of exactly their size, so that
// AddressSanitizer sees the first octet beyond.
#ifndef SMSPB_TESTS_FUZZ_H
#define SMSPB_TESTS_FUZZ_H

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "comm/smspb_types.h"

namespace fuzz {

// One input of a target.
void examine(std::string_view input);

// Ends the run when what the interface promises does not hold.
inline void require(bool holds, const char *promise) {
    if (holds) { return; }
    std::fprintf(stderr, "does not hold: %s\n", promise);
    std::abort();
}

// `count` elements on the heap, zero at first.
template <typename T> class Block {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    explicit Block(std::size_t count = 1) : elements_(new T[count]()), count_(count) {}
    T *get() const { return elements_.get(); }
    T *operator->() const { return get(); }
    T &operator*() const { return *get(); }
    T &operator[](std::size_t i) const { return elements_[i]; }
    std::size_t size() const { return count_; }

private:
    std::unique_ptr<T[]> elements_;
    std::size_t count_;
};

// A copy of the octets, as elements of T; what does not fill one is left out.
template <typename T = u8> Block<T> copyOf(std::string_view octets) {
    Block<T> block(octets.size() / sizeof(T));
    if (block.size() != 0) { std::memcpy(block.get(), octets.data(), block.size() * sizeof(T)); }
    return block;
}

// The text before the first zero, with a zero as its last octet.
inline Block<char> textOf(std::string_view input) {
    input = input.substr(0, input.find('\0'));
    Block<char> text(input.size() + 1);
    std::copy(input.begin(), input.end(), text.get());
    return text;
}

// The units before the first zero, with a zero as the last.
inline Block<u16> unitsOf(std::string_view input) {
    const Block<u16> units = copyOf<u16>(input);
    const u16 *end = std::find(units.get(), units.get() + units.size(), u16{0});
    Block<u16> text(static_cast<std::size_t>(end - units.get()) + 1);
    std::copy(static_cast<const u16 *>(units.get()), end, text.get());
    return text;
}

// The next octet of the input, 0 at its end: for lengths and choices.
inline u8 takeOctet(std::string_view *input) {
    if (input->empty()) { return 0; }
    const u8 octet = static_cast<u8>(input->front());
    input->remove_prefix(1);
    return octet;
}

// The parts between zero octets.
inline std::vector<std::string> partsOf(std::string_view input) {
    std::vector<std::string> parts;
    for (std::size_t end = input.find('\0'); end != std::string_view::npos;
         end = input.find('\0')) {
        parts.emplace_back(input.substr(0, end));
        input.remove_prefix(end + 1);
    }
    parts.emplace_back(input);
    return parts;
}

// Whether one of the `count` units is the zero that ends them.
inline bool ends(const u16 *units, std::size_t count) {
    return std::find(units, units + count, u16{0}) != units + count;
}

} // namespace fuzz

#endif

// What the library allocated for its caller, which frees it.
#ifndef SMSPB_TOOLS_MALLOCED_H
#define SMSPB_TOOLS_MALLOCED_H

#include <cstdlib>
#include <memory>

namespace smspb::cli {

struct Free {
    void operator()(void *block) const { std::free(block); }
};

template <typename Type> using Malloced = std::unique_ptr<Type, Free>;

} // namespace smspb::cli

#endif

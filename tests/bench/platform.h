// The platform's functions in the same process: the modem manager answers at once, on the caller's
// thread. An exchange costs two blocks from the heap and a copied answer, nothing else.
#ifndef SMSPB_TESTS_BENCH_PLATFORM_H
#define SMSPB_TESTS_BENCH_PLATFORM_H

#include <string_view>

namespace bench {

// Every command from now on meets this reply, of at most 1,000 characters. It must outlive them.
void answerWith(std::string_view reply);

} // namespace bench

#endif

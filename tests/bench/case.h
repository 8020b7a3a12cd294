// A case is a piece of work that checks itself and can be repeated: smspb_bench times it,
// smspb_count counts its instructions.
#ifndef SMSPB_TESTS_BENCH_CASE_H
#define SMSPB_TESTS_BENCH_CASE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

struct Case {
    std::string name;       // "<row>/<whose>", whose is "ours" or the peer
    void (*run)();          // the work, once
    const char *(*wrong)(); // after run(): null, or what is wrong with the result
};

std::vector<Case> &cases();

// Adds cases before main(); one object per source file that has any.
struct Register {
    Register(std::initializer_list<Case> list) {
        cases().insert(cases().end(), list.begin(), list.end());
    }
};

// Runs every case once and ends the program, naming the case, when a result is wrong.
void checkAll();

} // namespace bench

#endif

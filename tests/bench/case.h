// A case is a piece of work that can be repeated and whose result can be checked: it is timed, and
// its instructions are counted.
#ifndef SMSPB_TESTS_BENCH_CASE_H
#define SMSPB_TESTS_BENCH_CASE_H

#include <string>
#include <vector>

namespace bench {

struct Case {
    std::string name;       // "<row>/<whose>", whose is "ours" or the peer
    void (*run)();          // the work, once
    const char *(*wrong)(); // behind run(): null, or what is wrong with its result
    int logLines;
};

const std::vector<Case> &cases();

// Adds a case; `logLines` is the number of lines that run() writes.
void add(std::string name, void (*run)(), const char *(*wrong)(), int logLines = 0);

// Lets a source file add its cases before main().
struct Register {
    explicit Register(void (*addCases)()) { addCases(); }
};

// Runs every case and ends the program, naming the case, when a result is wrong, or the number of
// log lines of a case that has any.
void checkAll();

} // namespace bench

#endif

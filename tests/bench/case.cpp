#include "case.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace bench {
namespace {

constexpr char LIBRARY_LOG[] = "/tmp/smspblog.1";
// The log is the whole machine's: another process may write or rotate it in between.
constexpr std::chrono::seconds COUNTING_TIME{2};

std::vector<Case> &allCases() {
    static std::vector<Case> all;
    return all;
}

off_t logSize() {
    struct stat status;
    return stat(LIBRARY_LOG, &status) == 0 ? status.st_size : 0;
}

std::string logSince(off_t begin) {
    std::string text;
    const off_t end = logSize();
    const int log = open(LIBRARY_LOG, O_RDONLY | O_CLOEXEC);
    if (log < 0 || end <= begin) { return text; }
    text.resize(static_cast<std::size_t>(end - begin));
    const ssize_t got = pread(log, text.data(), text.size(), begin);
    text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    close(log);
    return text;
}

int occurrences(std::string_view text, std::string_view what) {
    int count = 0;
    for (auto at = text.find(what); at != text.npos; at = text.find(what, at + 1)) { count++; }
    return count;
}

int linesOf(const Case &each) {
    const off_t before = logSize();
    each.run();
    const std::string lines = logSince(before);
    return occurrences(lines, "[atlib/") + occurrences(lines, "[comm/");
}

bool writesItsLines(const Case &each) {
    const auto end = std::chrono::steady_clock::now() + COUNTING_TIME;
    while (std::chrono::steady_clock::now() < end) {
        if (linesOf(each) == each.logLines) { return true; }
    }
    return false;
}

[[noreturn]] void refuse(const Case &each, const char *why) {
    std::fprintf(stderr, "%s: %s\n", each.name.c_str(), why);
    std::exit(1);
}

} // namespace

const std::vector<Case> &cases() { return allCases(); }

void add(std::string name, void (*run)(), const char *(*wrong)(), int logLines) {
    allCases().push_back({std::move(name), run, wrong, logLines});
}

void checkAll() {
    for (const Case &each : cases()) {
        each.run(); // what the first run leaves behind must not matter to the next
        if (each.logLines != 0 && !writesItsLines(each)) {
            refuse(each, "another number of log lines");
        }
        if (const char *wrong = each.wrong()) { refuse(each, wrong); }
    }
}

} // namespace bench

// One log line: the bare four system calls, and the library's writer.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "case.h"
#include "comm/log_line.h"

namespace bench {
namespace {

// Beside the library's own log, of the same growth: the rename keeps it as short.
constexpr char BARE_LOG[] = "/tmp/smspblog.bench.1";
constexpr char BARE_PREVIOUS[] = "/tmp/smspblog.bench.2";
constexpr off_t ROTATION_SIZE = 262144;
constexpr char LINE[] = "[atlib/SmsEncoding.cpp:wms_ts_decode_deliver:1034]TP-MTI, TP_UDHI:0x04\n";

void bareLine() {
    const int log = open(BARE_LOG, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    const ssize_t written = write(log, LINE, sizeof(LINE) - 1);
    close(log);
    struct stat status;
    if (written < 0 || stat(BARE_LOG, &status) != 0) { return; }
    if (status.st_size > ROTATION_SIZE) { std::rename(BARE_LOG, BARE_PREVIOUS); }
}

void libraryLine() {
    logLine("atlib/SmsEncoding.cpp", "wms_ts_decode_deliver", 1034, "TP-MTI, TP_UDHI:0x%02x\n", 4);
}

const char *endsOtherwise(const char *path) {
    char end[sizeof(LINE)] = "";
    const int log = open(path, O_RDONLY | O_CLOEXEC);
    if (log < 0) { return "no log file"; }
    lseek(log, -static_cast<off_t>(sizeof(LINE) - 1), SEEK_END);
    const ssize_t got = read(log, end, sizeof(LINE) - 1);
    close(log);
    return got == sizeof(LINE) - 1 && std::strcmp(end, LINE) == 0 ? nullptr : "another line";
}

const Register CASES([] {
    add(
        "log line/ours", libraryLine, [] { return endsOtherwise("/tmp/smspblog.1"); }, 1);
    add("log line/bare", bareLine, [] { return endsOtherwise(BARE_LOG); });
});

} // namespace
} // namespace bench

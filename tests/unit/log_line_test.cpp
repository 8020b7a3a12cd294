#include "comm/log_line.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <thread>

#include "atlib/USBModem.h"
#include "comm/zeldcard_common.h"
#include "support/library_test.h"

using namespace support;

namespace {

const std::size_t THRESHOLD = 262144;

class Log : public LibraryTest {};
class Rotation : public LibraryTest {};

void logShortLine() { logLine("comm/source.cpp", "function", 7, "text\n"); }
const std::string SHORT_LINE = "[comm/source.cpp:function:7]text\n";

} // namespace

TEST_F(Log, LineIsThePrefixAndTheMessage) {
    logLine("comm/source.cpp", "function", 1234, "value %u of \"%s\"\n\n", 17U, "name");
    EXPECT_EQ(logFile(CURRENT_LOG), "[comm/source.cpp:function:1234]value 17 of \"name\"\n\n");
    EXPECT_FALSE(logFileExists(PREVIOUS_LOG));
}

TEST_F(Log, LineGetsNoEndOfItsOwn) {
    logLine("comm/source.cpp", "function", 1, "one");
    logLine("comm/source.cpp", "other", 2, "two");
    EXPECT_EQ(logFile(CURRENT_LOG), "[comm/source.cpp:function:1]one[comm/source.cpp:other:2]two");
}

TEST_F(Log, LineIsAppendedToWhatStands) {
    writeLogFile(CURRENT_LOG, "before\n");
    logShortLine();
    EXPECT_EQ(logFile(CURRENT_LOG), "before\n" + SHORT_LINE);
}

TEST_F(Log, FileIsOpenedAnewForEveryLine) {
    for (int i = 0; i < 3; i++) { logShortLine(); }
    EXPECT_EQ(logOpens(), 3U);
}

TEST_F(Log, FileThatWasRemovedBetweenTwoLinesIsBegunAgain) {
    logShortLine();
    std::filesystem::remove(privatePath(CURRENT_LOG));
    logShortLine();
    EXPECT_EQ(logFile(CURRENT_LOG), SHORT_LINE);
}

TEST_F(Log, ArgumentsAreNotTakenForFormats) {
    logLine("comm/source.cpp", "function", 1, "%s\n", "100%n %s");
    EXPECT_EQ(logMessages(), (std::vector<std::string>{"100%n %s\n"}));
}

TEST_F(Log, LongLineIsWhole) {
    for (const std::size_t length : {200, 500, 1000, 1024, 4000, 5000, 20000}) {
        clearLog();
        const std::string text(length, 'x');
        logLine("comm/source.cpp", "function", 1, "<%s>\n\n", text.c_str());
        EXPECT_EQ(logFile(CURRENT_LOG), "[comm/source.cpp:function:1]<" + text + ">\n\n");
    }
}

TEST_F(Log, EveryLengthAroundAPowerOfTwoIsWhole) {
    for (std::size_t length = 0; length < 1200; length++) {
        clearLog();
        const std::string text(length, 'y');
        logLine("comm/source.cpp", "function", 1, "%s\n", text.c_str());
        ASSERT_EQ(logFile(CURRENT_LOG), "[comm/source.cpp:function:1]" + text + "\n");
    }
}

TEST_F(Log, LeavesErrnoAlone) {
    errno = ENOTTY;
    logShortLine();
    EXPECT_EQ(errno, ENOTTY);
    setLogFaults({true, true});
    logShortLine();
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(Log, FileThatCannotBeOpenedDropsTheLineAndNothingElse) {
    setLogFaults({true, false});
    EXPECT_EQ(zeldcard_send_mq(0, 1, nullptr, 0), IPC_NULL_ARGUMENT);
    EXPECT_EQ(zeldcard_send_notify(1, "x", 1), IPC_OK);
    setLogFaults({});
    EXPECT_FALSE(logFileExists(CURRENT_LOG));
}

TEST_F(Log, DirectoryUnderTheLogsNameDropsTheLine) {
    std::filesystem::create_directory(privatePath(CURRENT_LOG));
    EXPECT_EQ(zeldcard_send_mq(0, 1, nullptr, 0), IPC_NULL_ARGUMENT);
    EXPECT_TRUE(std::filesystem::is_directory(privatePath(CURRENT_LOG)));
    EXPECT_TRUE(std::filesystem::is_empty(privatePath(CURRENT_LOG)));
}

TEST_F(Log, FifoWithoutAReaderDoesNotBlock) {
    ASSERT_EQ(mkfifo(privatePath(CURRENT_LOG).c_str(), 0600), 0);
    logShortLine();
}

TEST_F(Log, SymbolicLinkIsNotFollowed) {
    const std::string target = privatePath(CURRENT_LOG) + ".target";
    std::filesystem::create_symlink(target, privatePath(CURRENT_LOG));
    logShortLine();
    EXPECT_FALSE(std::filesystem::exists(target));
}

TEST_F(Log, SymbolicLinkToAFileLeavesTheFileAlone) {
    const std::string target = privatePath(CURRENT_LOG) + ".mine";
    std::ofstream(target) << "mine";
    std::filesystem::create_symlink(target, privatePath(CURRENT_LOG));
    logShortLine();
    EXPECT_EQ(std::filesystem::file_size(target), 4U);
}

TEST_F(Log, FullFifoDropsTheLineAndDoesNotBlock) {
    const std::string fifo = privatePath(CURRENT_LOG);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    const int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    const std::string page(4096, '.');
    while (write(writer, page.data(), page.size()) > 0) {}
    EXPECT_EQ(errno, EAGAIN);
    logShortLine();
    logLine("comm/source.cpp", "function", 1, "%s\n", std::string(20000, 'x').c_str());
    close(writer);
    close(reader);
}

TEST_F(Log, FifoWithAReaderGetsNothing) {
    const std::string fifo = privatePath(CURRENT_LOG);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    logShortLine();
    char octet = 0;
    EXPECT_LE(read(reader, &octet, 1), 0) << "who closes it would kill the writer";
    close(reader);
}

TEST_F(Log, FileWithASecondNameIsNotWrittenTo) {
    const std::string mine = privatePath(CURRENT_LOG) + ".mine";
    std::ofstream(mine) << "mine";
    std::filesystem::create_hard_link(mine, privatePath(CURRENT_LOG));
    logShortLine();
    std::string text;
    std::ifstream(mine) >> text;
    EXPECT_EQ(text, "mine");
    std::filesystem::remove(mine);
}

TEST_F(Log, DescriptorIsNotInherited) {
    const int log = openLogFile(CURRENT_LOG);
    ASSERT_GE(log, 0);
    EXPECT_EQ(fcntl(log, F_GETFD), FD_CLOEXEC);
    close(log);
}

TEST_F(Log, NoneOfTheFilesOpensAsAnythingElse) {
    for (const char *name : {CURRENT_LOG, AUXILIARY_LOG}) {
        const std::string path = privatePath(name);
        std::filesystem::create_symlink("/dev/null", path);
        EXPECT_EQ(openLogFile(name), -1) << "a symbolic link";
        std::filesystem::remove(path);
        std::filesystem::create_directory(path);
        EXPECT_EQ(openLogFile(name), -1) << "a directory";
        std::filesystem::remove(path);
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        EXPECT_EQ(openLogFile(name), -1) << "a FIFO without a reader";
        std::filesystem::remove(path);
    }
}

TEST_F(Log, AuxiliaryLogSaysThatItDidNotOpen) {
    std::filesystem::create_symlink("/dev/null", privatePath(AUXILIARY_LOG));
    EXPECT_EQ(usbmodem_log("text"), -1);
    std::filesystem::remove(privatePath(AUXILIARY_LOG));
    EXPECT_EQ(usbmodem_log("text"), 0);
    EXPECT_EQ(logFile(AUXILIARY_LOG), "text");
}

TEST_F(Log, NoDescriptorStaysOpen) {
    const int before = dup(0);
    close(before);
    for (int i = 0; i < 10; i++) { logShortLine(); }
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_F(Log, LinesOfSeveralThreadsStayWhole) {
    const int LINES = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([t] {
            for (int i = 0; i < LINES; i++) {
                logLine("comm/source.cpp", "function", t, "thread %d line %d\n", t, i);
            }
        });
    }
    for (std::thread &thread : threads) { thread.join(); }
    std::vector<int> next(4, 0);
    const auto entries = logEntries();
    EXPECT_EQ(entries.size(), 4U * LINES);
    for (const LogEntry &entry : entries) {
        const auto t = static_cast<std::size_t>(entry.line);
        ASSERT_LT(t, next.size());
        EXPECT_EQ(entry.message,
                  "thread " + std::to_string(t) + " line " + std::to_string(next[t]++) + "\n");
    }
}

// Rotation

TEST_F(Rotation, FileOfExactly262144OctetsStays) {
    const std::string before(THRESHOLD - SHORT_LINE.size(), '.');
    writeLogFile(CURRENT_LOG, before);
    logShortLine();
    EXPECT_EQ(logFile(CURRENT_LOG), before + SHORT_LINE);
    EXPECT_FALSE(logFileExists(PREVIOUS_LOG));
}

TEST_F(Rotation, FileOf262145OctetsMovesWithTheLineThatMadeItSo) {
    const std::string before(THRESHOLD + 1 - SHORT_LINE.size(), '.');
    writeLogFile(CURRENT_LOG, before);
    logShortLine();
    EXPECT_FALSE(logFileExists(CURRENT_LOG));
    EXPECT_EQ(logFile(PREVIOUS_LOG), before + SHORT_LINE);
}

TEST_F(Rotation, NextLineBeginsANewFile) {
    writeLogFile(CURRENT_LOG, std::string(THRESHOLD, '.'));
    logShortLine();
    logShortLine();
    EXPECT_EQ(logFile(CURRENT_LOG), SHORT_LINE);
    EXPECT_EQ(logFile(PREVIOUS_LOG), std::string(THRESHOLD, '.') + SHORT_LINE);
}

TEST_F(Rotation, ReplacesALinkUnderTheEarlierFilesName) {
    const std::string target = privatePath(PREVIOUS_LOG) + ".mine";
    std::ofstream(target) << "mine";
    std::filesystem::create_symlink(target, privatePath(PREVIOUS_LOG));
    writeLogFile(CURRENT_LOG, std::string(THRESHOLD, '.'));
    logShortLine();
    EXPECT_EQ(std::filesystem::file_size(target), 4U);
    EXPECT_FALSE(std::filesystem::is_symlink(privatePath(PREVIOUS_LOG)));
    EXPECT_EQ(logFile(PREVIOUS_LOG).size(), THRESHOLD + SHORT_LINE.size());
}

TEST_F(Rotation, ReplacesTheEarlierFile) {
    writeLogFile(PREVIOUS_LOG, "earlier");
    writeLogFile(CURRENT_LOG, std::string(THRESHOLD, '.'));
    logShortLine();
    EXPECT_EQ(logFile(PREVIOUS_LOG), std::string(THRESHOLD, '.') + SHORT_LINE);
}

TEST_F(Rotation, KeepsTwoFilesAndALineAtMost) {
    const std::string text(1000, 'x');
    for (int i = 0; i < 600; i++) {
        logLine("comm/source.cpp", "function", i, "%s\n", text.c_str());
    }
    EXPECT_LE(logFile(CURRENT_LOG).size(), THRESHOLD);
    EXPECT_GT(logFile(PREVIOUS_LOG).size(), THRESHOLD);
    EXPECT_LE(logFile(PREVIOUS_LOG).size(), THRESHOLD + 1100);
    EXPECT_EQ(logEntries().back().line, 599);
}

TEST_F(Rotation, SizeIsA64BitNumber) {
    writeLogFile(CURRENT_LOG, "");
    ASSERT_EQ(truncate64(privatePath(CURRENT_LOG).c_str(), 0x100000010), 0) << "4 GiB, all hole";
    logShortLine();
    EXPECT_FALSE(logFileExists(CURRENT_LOG));
    EXPECT_TRUE(logFileExists(PREVIOUS_LOG));
}

TEST_F(Rotation, HappensAlsoWhenTheLineCouldNotBeWritten) {
    const std::string content(THRESHOLD + 1, '.');
    writeLogFile(CURRENT_LOG, content);
    setLogFaults({true, false});
    logShortLine();
    setLogFaults({});
    EXPECT_FALSE(logFileExists(CURRENT_LOG));
    EXPECT_EQ(logFile(PREVIOUS_LOG), content);
}

TEST_F(Rotation, IsSkippedWhenTheStatusQueryFails) {
    writeLogFile(CURRENT_LOG, std::string(THRESHOLD + 1, '.'));
    setLogFaults({false, true});
    logShortLine();
    setLogFaults({});
    EXPECT_EQ(logFile(CURRENT_LOG), std::string(THRESHOLD + 1, '.') + SHORT_LINE);
    EXPECT_FALSE(logFileExists(PREVIOUS_LOG));
}

TEST_F(Rotation, ThatFailsIsIgnored) {
    std::filesystem::create_directories(privatePath(PREVIOUS_LOG) + "/occupied");
    writeLogFile(CURRENT_LOG, std::string(THRESHOLD + 1, '.'));
    logShortLine();
    logShortLine();
    EXPECT_EQ(logFile(CURRENT_LOG), std::string(THRESHOLD + 1, '.') + SHORT_LINE + SHORT_LINE);
}

#include "comm/log_line.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <thread>

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

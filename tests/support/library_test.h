// The fixture of every test of the library: an empty log, a forgetful platform and a counted heap
// before it; no IPC block and no heap block left behind after it.
#ifndef SMSPB_TESTS_LIBRARY_TEST_H
#define SMSPB_TESTS_LIBRARY_TEST_H

#include <gtest/gtest.h>

#include "failing_malloc.h"
#include "fake_platform.h"
#include "guard_page.h"
#include "log_reader.h"
#include "private_log.h"
#include "scripted_modem.h"
#include "vectors.h"

namespace support {

inline void beginLibraryTest() {
    setLogFaults({});
    clearLog();
    resetPlatform();
    resetHeap();
}

inline void endLibraryTest() {
    allowAllocations();
    setLogFaults({});
    EXPECT_EQ(liveBlocks(), 0U) << "heap blocks were not freed";
    EXPECT_EQ(liveIpcBlocks(), 0U) << "IPC blocks were not freed";
}

class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override { beginLibraryTest(); }
    void TearDown() override { endLibraryTest(); }
};

// The same for a suite of vectors: SMSPB_VECTORS(Suite, "file.txt").
class LibraryVectorTest : public VectorTest {
protected:
    void SetUp() override { beginLibraryTest(); }
    void TearDown() override {
        VectorTest::TearDown();
        endLibraryTest();
    }
};

} // namespace support

#endif

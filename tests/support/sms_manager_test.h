// The fixture of the SMS manager's tests: the cached service centre is forgotten before each.
#ifndef SMSPB_TESTS_SMS_MANAGER_TEST_H
#define SMSPB_TESTS_SMS_MANAGER_TEST_H

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "atlib/CSMS.h"
#include "library_test.h"

namespace support {

class SmsManagerTest : public LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        g_blInitCsca = 0;
        std::fill(std::begin(g_wszCsca), std::end(g_wszCsca), u16{0});
    }
};

// Every command so far waited 3,000 ms, within the fixed IPC wait, for the first `markerCount`
// markers.
inline void expectRequestForm(const ScriptedModem &modem, std::size_t markerCount) {
    std::vector<std::string> markers = fourMarkers();
    markers.resize(markerCount);
    for (const Request &request : modem.requests()) {
        EXPECT_EQ(request.waitMs, 3000U) << request.command;
        EXPECT_EQ(request.ipcTimeout, 20000U) << request.command;
        EXPECT_EQ(request.destination, 1U) << request.command;
        EXPECT_EQ(request.markers, markers) << request.command;
    }
}

// A reply of a vector file with its escapes as the characters they stand for: "\\r", "\\n", and
// "\\s" for a blank at its end.
inline std::string withCharacters(std::string text) {
    for (const auto &[escape, character] : {
             std::pair{"\\r", '\r'},
             {"\\n", '\n'},
             {"\\s",  ' '}
    }) {
        for (auto at = text.find(escape); at != std::string::npos; at = text.find(escape)) {
            text.replace(at, 2, 1, character);
        }
    }
    return text;
}

} // namespace support

#endif

#include <cstring>
#include <numeric>

#include "atlib/USBModem.h"
#include "support/library_test.h"
#include "support/random.h"

using namespace support;

namespace {

const char *const KEYS[] = {
    "+CMTI:",           "+CDSI:",      "DIAL CONNECT REQUEST",
    "Sim card removed", "RING_BACK",   "CONNECT",
    "+CLIP:",           "RING",        "+DISC:",
    "+URCIND:5",        "+VOICEMAIL:",
};
const u32 KEY_COUNT = 11, CLIP = 6, DISC = 8;

// Key numbers that exist, and some that do not.
const u32 NUMBERS[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 13, 14, 0x7FFFFFFF, 0xFFFFFFFF};

int keyOf(const std::string &line) { return checkReportKey(guardedText(line).get()); }

class ReportKeyVector : public LibraryVectorTest {};
class ReportKey : public LibraryTest {};

// What has no effect: no line, no request, no block left (the fixture), no change of the text.
class ReportText : public LibraryTest {
protected:
    void expectNoEffect() const {
        EXPECT_EQ(logMessages().size(), 0U);
        EXPECT_FALSE(logFileExists(AUXILIARY_LOG));
        EXPECT_TRUE(calls().empty());
        EXPECT_EQ(std::memcmp(g_pReportKeyData, keysBefore_, sizeof(keysBefore_)), 0);
        EXPECT_EQ(std::memcmp(g_nReportNodeNum, countsBefore_, sizeof(countsBefore_)), 0);
    }
    void SetUp() override {
        LibraryTest::SetUp();
        std::memcpy(keysBefore_, g_pReportKeyData, sizeof(keysBefore_));
        std::memcpy(countsBefore_, g_nReportNodeNum, sizeof(countsBefore_));
    }
    // The text of `length` octets ends at an unreadable page, without a zero.
    void find(u32 key, const std::string &text) {
        const GuardedBytes octets = againstGuardPage({text.begin(), text.end()});
        FindReportNode(key, reinterpret_cast<const char *>(octets.data()),
                       static_cast<u32>(text.size()));
        EXPECT_EQ(octets.octets(), (std::vector<u8>{text.begin(), text.end()}));
        EXPECT_TRUE(allocationSizes().empty());
    }

private:
    const char *keysBefore_[11] = {};
    i32 countsBefore_[14] = {};
};

class ReportChunks : public ReportText {
protected:
    // The chunks as a list, joined and examined; the list must be as it was.
    void report(u32 key, const std::vector<std::string> &chunks) {
        RxDataNode *head = nullptr;
        for (const std::string &chunk : chunks) {
            AddRxDataNode(&head, chunk.data(), static_cast<u32>(chunk.size()));
        }
        const std::size_t before = allocationSizes().size();
        DoReportData(key, head);
        const std::size_t total =
            std::accumulate(chunks.begin(), chunks.end(), std::size_t{0},
                            [](std::size_t sum, const std::string &c) { return sum + c.size(); });
        const std::vector<std::size_t> sizes = allocationSizes();
        ASSERT_EQ(sizes.size(), before + 1) << "one block for the joined text";
        EXPECT_EQ(sizes.back(), total + 1);
        const RxDataNode *node = head;
        for (const std::string &chunk : chunks) {
            ASSERT_NE(node, nullptr);
            EXPECT_EQ(std::string(node->data, node->length), chunk);
            node = node->next;
        }
        EXPECT_EQ(node, nullptr);
        DelRxDataNodeLink(&head);
        EXPECT_EQ(liveBlocks(), 0U);
    }
};

} // namespace

SMSPB_VECTORS(ReportKeyVector, "report_keys.txt");

// The tables

TEST_F(ReportKey, TableHoldsTheElevenPrefixesInOrder) {
    static_assert(sizeof(g_pReportKeyData) / sizeof(*g_pReportKeyData) == 11);
    for (u32 key = 0; key < KEY_COUNT; key++) { EXPECT_STREQ(g_pReportKeyData[key], KEYS[key]); }
}

TEST_F(ReportKey, CountTableHasThreeEntriesMoreThanThereAreKeysAndOnlyTheSecondIs2) {
    static_assert(sizeof(g_nReportNodeNum) / sizeof(*g_nReportNodeNum) == 14);
    for (u32 key = 0; key < 14; key++) { EXPECT_EQ(g_nReportNodeNum[key], key == 1 ? 2 : 1); }
}

// checkReportKey

TEST_P(ReportKeyVector, IsTheFirstThatMatches) {
    EXPECT_EQ(keyOf(v().text("line")), v().integer("key"));
}

TEST_F(ReportKey, NullLineGivesMinus1) { EXPECT_EQ(checkReportKey(nullptr), -1); }

TEST_F(ReportKey, EveryKeyIsFoundAloneAndWithWhateverFollows) {
    for (u32 key = 0; key < KEY_COUNT; key++) {
        EXPECT_EQ(keyOf(KEYS[key]), static_cast<int>(key));
        for (int c = 1; c < 256; c++) {
            const std::string line = std::string(KEYS[key]) + static_cast<char>(c);
            EXPECT_EQ(keyOf(line), static_cast<int>(key)) << line;
        }
    }
}

TEST_F(ReportKey, KeyCutAnywhereIsNoneButARingOfRingBack) {
    for (const std::string key : KEYS) {
        for (std::size_t kept = 0; kept < key.size(); kept++) {
            const std::string line = key.substr(0, kept);
            const bool ring = key == "RING_BACK" && kept >= 4;
            EXPECT_EQ(keyOf(line), ring ? 7 : -1) << line;
        }
    }
}

TEST_F(ReportKey, KeyWithOneOctetChangedIsNoneButARingOfRingBack) {
    for (const std::string key : KEYS) {
        for (std::size_t at = 0; at < key.size(); at++) {
            std::string line = key;
            line[at] = static_cast<char>(line[at] ^ 0x80);
            const bool ring = key == "RING_BACK" && at >= 4;
            EXPECT_EQ(keyOf(line), ring ? 7 : -1) << key << " at " << at;
        }
    }
}

TEST_F(ReportKey, KeyIsLookedForAtTheStartOnly) {
    for (const std::string key : KEYS) {
        for (const char *before : {" ", "\r\n", "x", "+"}) {
            EXPECT_EQ(keyOf(before + key), -1) << before << key;
        }
    }
}

// FindReportNode

TEST_F(ReportText, ExaminingItHasNoEffect) {
    for (const u32 key : NUMBERS) {
        for (const char *text :
             {"", "+CLIP: \"+4912345\",145,,,,0\r\n", "+CLIP:\"+4912345\",145\r\n",
              "+CLIP: ", "+DISC: 1,0,0,16,\"x\"\r\n", "+DISC: 1,0,0,,\r\n", "+CMTI: \"SM\",3\r\n",
              "+CDSI: \"SM\",5\r\n", "Sim card removed", "RING\r\n"}) {
            find(key, text);
        }
    }
    expectNoEffect();
}

TEST_F(ReportText, NullTextIsNothing) {
    for (const u32 key : NUMBERS) {
        FindReportNode(key, nullptr, 0);
        FindReportNode(key, nullptr, 100);
    }
    expectNoEffect();
}

TEST_F(ReportText, CutAnywhereIsNotReadBehindItsEnd) {
    for (const std::string whole :
         {"+CLIP: \"+4912345\",145,\"\",0\r\n", "+DISC: 1,22,333,4444444444444444444444,5,6\r\n"}) {
        for (std::size_t kept = 0; kept <= whole.size(); kept++) {
            find(CLIP, whole.substr(0, kept));
            find(DISC, whole.substr(0, kept));
        }
    }
    expectNoEffect();
}

TEST_F(ReportText, EndsAtItsZeroWhateverTheLengthSays) {
    for (const char *text :
         {"", "+CLIP: 1", "+CLIP:", "+DISC: 1,2", "+DISC: 1,2,3,", "+DISC:,,,4"}) {
        const auto guarded = guardedText(text);
        for (const u32 key : {CLIP, DISC}) {
            for (const u32 length : {1000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
                FindReportNode(key, guarded.get(), length);
            }
        }
    }
    expectNoEffect();
}

TEST_F(ReportText, CauseLongerThanItsFieldIsCut) {
    for (const std::size_t length : {1, 8, 9, 10, 11, 100, 100000}) {
        find(DISC, "+DISC: 1,2,3," + std::string(length, '9'));
        find(DISC, "+DISC: 1,2,3," + std::string(length, '9') + ",0");
    }
    expectNoEffect();
}

TEST_F(ReportText, TextOfRandomPiecesIsNotReadBehindItsEnd) {
    Random random(22);
    for (u32 round = 0; round < 2000; round++) {
        std::string text = round % 2 == 0 ? "+DISC: " : "+CLIP: ";
        for (u32 i = random.below(30); i > 0; i--) {
            text.push_back(",,,0123456789-+: \r\n\"CLIP"[random.below(23)]);
        }
        find(random.below(12), text);
    }
    expectNoEffect();
}

// DoReportData

TEST_F(ReportChunks, AreJoinedInOneBlockAndLeftAsTheyWere) {
    for (const u32 key : NUMBERS) {
        report(key, {"+CMTI: \"SM\",3\r\n"});
        report(key, {"+CDSI: ", "\"SM\",5\r\n"});
        report(key, {"+DI", "SC: 1,0", ",0,", "16", ",x\r\n"});
        report(key, {"+CL", "IP: \"+49", "12345\",145\r\n"});
        report(key, {"", "", "RING"});
        report(key, {std::string("a\0b", 3), std::string("\0", 1)});
        report(key, {std::string(100000, ','), std::string(5, 'x')});
    }
    expectNoEffect();
}

TEST_F(ReportChunks, EmptyListIsAnEmptyText) {
    for (const u32 key : NUMBERS) {
        resetHeap();
        DoReportData(key, nullptr);
        EXPECT_EQ(allocationSizes(), std::vector<std::size_t>{1});
    }
    expectNoEffect();
}

TEST_F(ReportChunks, AreJoinedFromTheNodeGiven) {
    RxDataNode *head = nullptr;
    AddRxDataNode(&head, "12345", 5);
    RxDataNode *second = AddRxDataNode(&head, "678", 3);
    AddRxDataNode(&head, "9", 1);
    DoReportData(DISC, second);
    EXPECT_EQ(allocationSizes().back(), 5U);
    DelRxDataNodeLink(&head);
}

TEST_F(ReportChunks, ChunkIsReadWithinItsLength) {
    const GuardedBytes data = againstGuardPage({'+', 'D', 'I', 'S', 'C'});
    RxDataNode last = {nullptr, 5, reinterpret_cast<char *>(data.data()), nullptr};
    RxDataNode empty = {nullptr, 0, nullptr, &last};
    DoReportData(DISC, &empty);
    EXPECT_EQ(allocationSizes(), std::vector<std::size_t>{6});
    expectNoEffect();
}

TEST_F(ReportChunks, WithoutMemoryNothingIsDone) {
    RxDataNode *head = nullptr;
    AddRxDataNode(&head, "+DISC: 1,2,3,4,5", 16);
    failAllocation(1);
    DoReportData(DISC, head);
    EXPECT_STREQ(head->data, "+DISC: 1,2,3,4,5");
    expectNoEffect();
    DelRxDataNodeLink(&head);
}

// smspb contacts as its users run it, on the simulated modem's phonebook.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "support/tool.h"
#include "tools/text.h"

namespace {

using namespace support;

constexpr int INTERRUPTED = 128 + SIGTERM;
constexpr unsigned LOCATIONS = 250; // of the simulated SIM

struct Entry {
    std::string name, number;
    bool operator==(const Entry &) const = default;
};
using Entries = std::map<unsigned, Entry>; // by location

std::ostream &operator<<(std::ostream &stream, const Entry &entry) {
    return stream << entry.name << " " << entry.number;
}

// As different as a phonebook's are, each only once.
Entry entryNumber(unsigned number) {
    static const std::array<std::string, 6> NAMES = {"Anna ", "Müller, ", "Боря ",
                                                     "안녕 ", "安娜; ",   "😀\\ "};
    const std::string count = std::to_string(number);
    return {NAMES.at(number % NAMES.size()) + count,
            (number % 2 == 0 ? "+49170" : "0170*") + count + (number % 5 == 0 ? "p1" : "")};
}

std::string csvOf(const std::vector<Entry> &entries) {
    std::string text = "name,number\r\n";
    for (const Entry &entry : entries) {
        text += "\"" + entry.name + "\"," + entry.number + "\r\n";
    }
    return text;
}

std::vector<Entry> manyEntries(unsigned count) {
    std::vector<Entry> entries;
    for (unsigned number = 1; number <= count; number++) { entries.push_back(entryNumber(number)); }
    return entries;
}

Entries numbered(const std::vector<Entry> &entries, unsigned first = 1) {
    Entries all;
    for (const Entry &entry : entries) { all[first++] = entry; }
    return all;
}

// UCS-2 in hexadecimal, as the modem takes a name.
std::string hexOf(std::string_view name) {
    static constexpr std::string_view DIGITS = "0123456789ABCDEF";
    std::string hex;
    for (const char16_t unit : smspb::cli::toUnits(smspb::cli::toCharacters(name))) {
        for (int shift = 12; shift >= 0; shift -= 4) { hex += DIGITS[(unit >> shift) & 0xF]; }
    }
    return hex;
}

class ContactsTool : public ToolWithModem {
protected:
    Result contacts(Arguments arguments, std::string_view input = "") const {
        arguments.insert(arguments.begin(), "contacts");
        return run(arguments, input);
    }
    Json contactsJson(Arguments arguments, std::string_view input = "") const {
        arguments.insert(arguments.begin(), "contacts");
        return json(arguments, input);
    }
    void expectRefusal(Arguments arguments, int code, const std::string &what,
                       const std::string &hint = "", std::string_view input = "") const {
        arguments.insert(arguments.begin(), "contacts");
        expectFailure(arguments, code, what, hint, input);
    }
    void importAll(const std::vector<Entry> &entries) const {
        const Result result = contacts({"import", "-"}, csvOf(entries));
        ASSERT_EQ(result.code, OK) << result;
    }
    void add(const std::string &name, const std::string &number) const {
        const Result result = contacts({"add", "--", name, number});
        ASSERT_EQ(result.code, OK) << result;
    }
    std::string at(const std::string &command) const {
        const Result result = run({"at", command});
        EXPECT_EQ(result.code, OK) << result;
        return result.out;
    }

    void clearFaults() const { at("AT^FAULT"); }

    Entries held(const std::string &storage = "sm") const {
        Entries entries;
        const Json list = contactsJson({"list", "--storage", storage});
        for (const Json &contact : list["contacts"]) {
            const bool isNew =
                entries.emplace(contact["index"], Entry{contact["name"], contact["number"]}).second;
            EXPECT_TRUE(isNew) << contact;
        }
        EXPECT_EQ(list["used"], entries.size());
        return entries;
    }

    std::string file(const std::string &name, const std::string &text) const {
        const std::string path = (directory_ / name).string();
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    static std::string textOf(const std::string &path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
};

TEST_F(ContactsTool, TwoHundredAndFiftyAreImportedListedEditedAndDeletedEachWholeAndOnce) {
    const std::vector<Entry> all = manyEntries(LOCATIONS);
    const Json imported = contactsJson({"import", "-"}, csvOf(all));
    EXPECT_EQ(imported["written"], LOCATIONS);
    Entries expected = numbered(all);
    EXPECT_EQ(held(), expected);

    const Json again = contactsJson({"import", "-"}, csvOf(all));
    EXPECT_EQ(again["written"], 0);
    EXPECT_EQ(again["already_there"], LOCATIONS);

    for (const unsigned index : {1U, 99U, 100U, 250U}) {
        const std::string number = std::to_string(index);
        EXPECT_EQ(contactsJson({"edit", number, "--name", "Ω " + number})["name"], "Ω " + number);
        expected[index].name = "Ω " + number;
    }
    EXPECT_EQ(contactsJson({"edit", "42", "--number", "+1 (555) 0100"})["number"], "+15550100");
    expected[42].number = "+15550100";
    EXPECT_EQ(held(), expected);

    const Json deleted = contactsJson({"delete", "3", "7", "20-35", "21"});
    EXPECT_EQ(deleted["contacts"], 18);
    EXPECT_EQ(deleted["used"], LOCATIONS - 18);
    for (unsigned index = 20; index <= 35; index++) { expected.erase(index); }
    expected.erase(3);
    expected.erase(7);
    EXPECT_EQ(held(), expected);

    // What is left goes in batches, over the gaps.
    EXPECT_EQ(contactsJson({"delete", "1-250"})["contacts"], LOCATIONS - 18);
    EXPECT_EQ(held(), Entries{});
}

TEST_F(ContactsTool, ARefusedBatchIsTriedOneByOne) {
    importAll(manyEntries(10));
    fault("+CPBW=*=error:1");
    EXPECT_EQ(contacts({"delete", "1-10"}).code, OK);
    EXPECT_EQ(held(), Entries{});
}

TEST_F(ContactsTool, ADeletionThatStopsTellsWhatIsDone) {
    importAll(manyEntries(90));
    // The second batch, then its third location twice: the library's try and ours.
    fault("+CPBW=41*=error:1");
    fault("+CPBW=43*=cme=13");
    const Result result = run({"--json", "contacts", "delete", "1-90"});
    EXPECT_EQ(result.code, IN_PART) << result;
    const Json error = result.json()["error"];
    EXPECT_EQ(error["completed"].size(), 42U);
    EXPECT_TRUE(contains(error["message"].get<std::string>(), "delete contact 43: SIM failure"));
    Entries expected = numbered(manyEntries(90));
    for (unsigned index = 1; index <= 42; index++) { expected.erase(index); }
    EXPECT_EQ(held(), expected);
}

TEST_F(ContactsTool, ExportAndImportGiveTheSamePhonebook) {
    const Entries all = numbered(manyEntries(60));
    importAll(manyEntries(60));
    for (const std::string name : {"all.vcf", "all.csv"}) {
        const std::string path = (directory_ / name).string();
        const Json exported = contactsJson({"export", path});
        EXPECT_EQ(exported["contacts"], 60);
        EXPECT_EQ(exported["format"], name == "all.csv" ? "csv" : "vcard");
        ASSERT_EQ(contacts({"delete", "1-250"}).code, OK);
        EXPECT_EQ(contactsJson({"import", path})["written"], 60);
        EXPECT_EQ(held(), all) << name;
    }
}

TEST_F(ContactsTool, ExportGoesToStandardOutputOrIntoTheDocument) {
    add("Müller, Anna", "+491701234567");
    const std::string card = "BEGIN:VCARD\r\nVERSION:3.0\r\nN:Müller\\, Anna;;;;\r\n"
                             "FN:Müller\\, Anna\r\nTEL:+491701234567\r\nEND:VCARD\r\n";
    EXPECT_EQ(contacts({"export"}).out, card);
    EXPECT_EQ(contacts({"export", "-", "--format", "csv"}).out,
              "name,number\r\n\"Müller, Anna\",+491701234567\r\n");
    EXPECT_EQ(contactsJson({"export"})["text"], card);
}

TEST_F(ContactsTool, AFileThatCannotBeWrittenIsAnError) {
    add("Anna", "1");
    const Result full = contacts({"export", "/dev/full"});
    EXPECT_EQ(full.code, 1) << full;
    EXPECT_TRUE(contains(full.err, "cannot write /dev/full: No space left")) << full;
    EXPECT_TRUE(contains(contacts({"export", (directory_ / "none" / "x.vcf").string()}).err,
                         "No such file"));
}

TEST_F(ContactsTool, TheFormatIsToldByWhatTheFileHoldsUnlessItIsNamed) {
    const std::string card = "BEGIN:VCARD\nFN:Anna\nTEL:1\nTEL:2\nTEL:1\nEND:VCARD\n";
    const Json imported = contactsJson({"import", file("odd.csv", card)});
    EXPECT_EQ(imported["format"], "vcard");
    EXPECT_EQ(imported["already_there"], 1); // the number that the card names twice
    EXPECT_EQ(held(), (Entries{
                          {1, {"Anna", "1"}},
                          {2, {"Anna", "2"}}
    }));
    expectRefusal({"import", "--format", "csv", file("a.vcf", card)}, USAGE,
                  "a.vcf, line 1: the first line does not name the columns", "name,number");
}

TEST_F(ContactsTool, AFileWithoutContactsIsRefusedBeforeTheModemIsAsked) {
    manager_->stop();
    expectRefusal({"import", "-"}, USAGE, "-, line 1: the first line", "BEGIN:VCARD", "hello\n");
    expectRefusal({"import", file("c.csv", "name,number\n")}, USAGE, "c.csv holds no contact");
    expectRefusal({"import", directory_.path().string()}, USAGE, "Is a directory");
    expectRefusal({"import", "/nonexistent"}, USAGE, "cannot read /nonexistent: No such file");
}

const std::string MIXED = "name,number\n"
                          "Anna,1\n"
                          "Bartholomäus van Houten,2\n"
                          "Bob,12x4\n"
                          "Zoë,3\n";

TEST_F(ContactsTool, NothingOfAnImportIsWrittenWhenOneEntryDoesNotFit) {
    const Result result = contacts({"import", "-"}, MIXED);
    EXPECT_EQ(result.code, USAGE) << result;
    EXPECT_EQ(result.err,
              "smspb: line 3: \"Bartholomäus van Hou…\" has 23 characters; this SIM takes 18\n"
              "smspb: line 4: number \"12x4\": character 3 is \"x\"\n"
              "smspb: 2 of 4 contacts cannot be imported; nothing was written\n"
              "  next: mend what is wrong, or write the others with --partial\n");
    EXPECT_EQ(held(), Entries{});
    const Json document = run({"--json", "contacts", "import", "-"}, MIXED).json();
    EXPECT_EQ(document["written"], 0);
    EXPECT_EQ(document["refused"].size(), 2U);
    EXPECT_EQ(document["refused"][1]["line"], 4);
    EXPECT_EQ(document["error"]["exit_code"], USAGE);
}

TEST_F(ContactsTool, PartialWritesWhatFitsAndListsTheRest) {
    const Result result = contacts({"import", "--partial", "-"}, MIXED);
    EXPECT_EQ(result.code, IN_PART) << result;
    EXPECT_EQ(result.out, "wrote 2 contacts to SM at 1-2; 2 left out\n");
    EXPECT_TRUE(contains(result.err, "line 3: ")) << result;
    EXPECT_EQ(held(), (Entries{
                          {1, {"Anna", "1"}},
                          {2, {"Zoë", "3"}}
    }));
    // Once more, nothing comes twice.
    EXPECT_EQ(contacts({"import", "--partial", "-"}, MIXED).out,
              "wrote 0 contacts to SM; 2 there already; 2 left out\n");
    EXPECT_EQ(held().size(), 2U);
}

TEST_F(ContactsTool, ADryRunChecksEverythingAndWritesNothing) {
    const Result result = contacts({"import", "--dry-run", "-"}, "name,number\nA,1\nB,2\n");
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_EQ(result.out, "would write 2 contacts to SM at 1-2\n");
    EXPECT_EQ(contacts({"import", "--dry-run", "-"}, MIXED).code, USAGE);
    EXPECT_EQ(contacts({"import", "--dry-run", "--partial", "-"}, MIXED).code, IN_PART);
    const Json document = contactsJson({"import", "--dry-run", "-"}, "name,number\nA,1\n");
    EXPECT_EQ(document["dry_run"], true);
    EXPECT_EQ(document["written"], 0);
    EXPECT_EQ(document["contacts"][0]["index"], 1);
    EXPECT_EQ(held(), Entries{});
}

TEST_F(ContactsTool, AFullPhonebookTakesNothingMore) {
    start({"--pb-sm-size", "10"});
    importAll(manyEntries(8));
    const std::string four = csvOf({
        {"A", "1"},
        {"B", "2"},
        {"C", "3"},
        {"D", "4"}
    });
    const Result refused = contacts({"import", "-"}, four);
    EXPECT_EQ(refused.code, REFUSED) << refused;
    EXPECT_TRUE(contains(refused.err, "from line 4 on: no free location for 2 contacts"))
        << refused;
    EXPECT_EQ(held().size(), 8U);
    const Result partial = contacts({"import", "--partial", "-"}, four);
    EXPECT_EQ(partial.code, IN_PART) << partial;
    EXPECT_EQ(partial.out, "wrote 2 contacts to SM at 9-10; 2 left out\n");
    expectRefusal({"add", "E", "5"}, REFUSED, "SM is full: 10 of 10 locations are used",
                  "smspb contacts delete");
    expectRefusal({"import", "-"}, REFUSED, "SM is full", "smspb contacts delete",
                  "name,number\nE,5\n");
}

TEST_F(ContactsTool, AnImportFillsTheGaps) {
    importAll(manyEntries(6));
    ASSERT_EQ(contacts({"delete", "2", "4-5"}).code, OK);
    EXPECT_EQ(contacts(
                  {
                      "import", "-"
    },
                  csvOf({{"A", "1"}, {"B", "2"}, {"C", "3"}, {"D", "4"}}))
                  .out,
              "wrote 4 contacts to SM at 2,4-5,7\n");
    Entries expected = numbered(manyEntries(6));
    expected[2] = {"A", "1"};
    expected[4] = {"B", "2"};
    expected[5] = {"C", "3"};
    expected[7] = {"D", "4"};
    EXPECT_EQ(held(), expected);
}

TEST_F(ContactsTool, AnImportThatStopsTellsWhatIsWrittenAndCanBeRepeated) {
    fault("+CPBW=5*=cme=13:1-2"); // the library's try and ours
    const Result stopped = run({"--json", "contacts", "import", "-"}, csvOf(manyEntries(9)));
    EXPECT_EQ(stopped.code, IN_PART) << stopped;
    const Json error = stopped.json()["error"];
    EXPECT_EQ(error["completed"], Json({1, 2, 3, 4}));
    EXPECT_TRUE(contains(error["message"].get<std::string>(), "(4 of 9 contacts written)"));
    EXPECT_EQ(contactsJson({"import", "-"}, csvOf(manyEntries(9)))["written"], 5);
    EXPECT_EQ(held(), numbered(manyEntries(9)));
}

TEST_F(ContactsTool, ABusyModemIsAskedTwice) {
    fault("+CPBW=2*=cme=14:1");
    EXPECT_EQ(contacts({"import", "-"}, csvOf(manyEntries(3))).code, OK);
    EXPECT_EQ(held(), numbered(manyEntries(3)));
}

TEST_F(ContactsTool, PartialGoesOnBehindAnEntryThatTheModemItselfFindsTooLong) {
    fault("+CPBW=2*=cme=24");
    const Result result = contacts({"import", "--partial", "-"}, csvOf(manyEntries(3)));
    EXPECT_EQ(result.code, IN_PART) << result;
    EXPECT_TRUE(contains(result.err, "line 3: the modem refused to write")) << result;
    EXPECT_EQ(held().size(), 2U);
    const Result whole = contacts({"import", "-"}, csvOf(manyEntries(3)));
    EXPECT_EQ(whole.code, REFUSED) << whole;
    EXPECT_TRUE(contains(whole.err, "text string too long (+CME ERROR: 24)")) << whole;
}

TEST_F(ContactsTool, AnInterruptedImportGivesTheSettingsBackAndCanBeRepeated) {
    at("AT+CSCS=\"IRA\"");
    fault("+CPBW=*=delay=30");
    Process process(command({"contacts", "import", "-"}), environment());
    process.write(csvOf(manyEntries(100)));
    process.closeInput();
    EXPECT_TRUE(becomes([this] {
        return contains(at("AT+CPBS?"), "\"SM\",") && !contains(at("AT+CPBS?"), "\"SM\",0,");
    }));
    process.signal(SIGTERM);
    Result result;
    result.code = exitCode(process.finish(result.out, result.err));
    EXPECT_EQ(result.code, INTERRUPTED) << result;
    EXPECT_TRUE(contains(result.err, "of 100 contacts written)")) << result;
    EXPECT_TRUE(contains(at("AT+CSCS?"), "IRA"));
    const std::size_t written = held().size();
    EXPECT_GT(written, 0U);
    EXPECT_LT(written, 100U);
    clearFaults();
    EXPECT_EQ(contactsJson({"import", "-"}, csvOf(manyEntries(100)))["already_there"], written);
    EXPECT_EQ(held(), numbered(manyEntries(100)));
}

TEST_F(ContactsTool, NamesOfEveryScriptComeBack) {
    const std::vector<std::string> names = {
        "Anna",           "Ærø Ñandú ß",
        "Γειά σου",       "Борис Годунов",
        "שלום עולם",      "سلام",
        "नमस्ते",           "안녕하세요",
        "😀👍🏽",   "e\u0301",
        "\"[^]{|}~\\€@;", "安娜安娜安娜安娜安娜安娜安娜安娜安娜", // 54 octets of UTF-8
        "😀😀😀😀😀😀😀😀😀",                                              // 18 units
        " blanks ",       "a,b;c"};
    std::vector<Entry> entries;
    for (const std::string &name : names) {
        add(name, "1");
        entries.push_back({name, "1"});
    }
    EXPECT_EQ(held(), numbered(entries));
}

TEST_F(ContactsTool, AnEntryThatDoesNotFitIsRefusedWithTheLimit) {
    expectRefusal({"add", "1234567890123456789", "1"}, USAGE,
                  "\"1234567890123456789\" has 19 characters; this SIM takes 18", "shorten it");
    expectRefusal({"add", "😀😀😀😀😀😀😀😀😀a", "1"}, USAGE,
                  "has 19 characters (an emoji counts as two); this SIM takes 18");
    expectRefusal({"add", "Anna", "+12345678901234567890"}, USAGE,
                  "\"Anna\": number +12345678901234567890 has 21 characters; this SIM takes 20");
    expectRefusal({"add", "--storage", "me", "1234567890123456789", "1"}, USAGE,
                  "this modem takes 18");
    add("123456789012345678", "12345678901234567890");
    expectRefusal({"edit", "1", "--name", "1234567890123456789"}, USAGE, "this SIM takes 18");
    expectRefusal({"edit", "1", "--number", "123456789012345678901"}, USAGE, "this SIM takes 20");
    EXPECT_EQ(held(), (Entries{
                          {1, {"123456789012345678", "12345678901234567890"}}
    }));
    start({"--pb-name-max", "5"});
    expectRefusal({"add", "Ирина М", "1"}, USAGE, "\"Ирина М\" has 7 characters; this SIM takes 5");
}

TEST_F(ContactsTool, TheLibrarysFiftyUnitsAreALimitToo) {
    start({"--pb-name-max", "100"});
    add(std::string(50, 'x'), "1");
    expectRefusal({"add", std::string(51, 'x'), "1"}, USAGE,
                  "has 51 characters; this SIM takes 50");
    EXPECT_EQ(held().at(1).name, std::string(50, 'x'));
}

TEST_F(ContactsTool, WhatIsNoNameNumberOrIndexIsRefusedBeforeTheModemIsAsked) {
    manager_->stop();
    const struct {
        Arguments arguments;
        std::string what;
    } cases[] = {
        {         {"add", "Anna", "12x"},      "number \"12x\": character 3 is \"x\""},
        {            {"add", "Anna", ""},                          "it has no digits"},
        {       {"add", "An\nna", "123"},               "holds U+000A at character 3"},
        {       {"add", "An\xE9", "123"},                              "is not UTF-8"},
        {                  {"edit", "1"},                "nothing to change is given"},
        {{"edit", "1", "--number", "x1"},                      "character 1 is \"x\""},
        {                  {"show", "x"}, "INDEX \"x\" is not the index of a contact"},
        {                {"show", "3-4"},            "INDEX \"3-4\" names 2 contacts"},
        {           {"delete", "1", "-"},                        "INDEX \"-\" is not"},
        {                   {"find", ""},                             "TEXT is empty"},
        {                       {"frob"},              "there is no command \"frob\""},
        {                             {},                  "A subcommand is required"},
        {                       {"show"},                         "INDEX is required"},
        {  {"export", "--format", "xls"},                                       "xls"},
    };
    for (const auto &[arguments, what] : cases) { expectRefusal(arguments, USAGE, what, "\n"); }
}

TEST_F(ContactsTool, LocationsThatAreNoneOrEmptyOrTakenAreTold) {
    add("Anna", "1");
    for (const char *index : {"0", "251", "65535"}) {
        const std::string what = "there is no location " + std::string(index) + " in SM";
        expectRefusal({"show", index}, USAGE, what, "from 1 to 250");
        expectRefusal({"edit", index, "--name", "x"}, USAGE, what);
        expectRefusal({"delete", index}, USAGE, what);
        expectRefusal({"add", "x", "1", "--index", index}, USAGE, what);
    }
    expectRefusal({"delete", "1-251"}, USAGE, "there is no location 251");
    expectRefusal({"show", "2"}, NO_MESSAGE, "there is no contact 2 in SM", "contacts list");
    expectRefusal({"edit", "2", "--name", "x"}, NO_MESSAGE, "there is no contact 2 in SM");
    expectRefusal({"delete", "2-9"}, NO_MESSAGE, "there is no contact 2-9 in SM");
    expectRefusal({"find", "zzz"}, NO_MESSAGE, "no contact in SM has \"zzz\"");
    expectRefusal({"add", "x", "1", "--index", "1"}, USAGE, "location 1 in SM is taken",
                  "smspb contacts edit 1");
    EXPECT_EQ(held().size(), 1U);
}

TEST_F(ContactsTool, ShowFindAddAndEditSayWhatIsThere) {
    EXPECT_EQ(contacts({"add", "Anna Müller", "+49 170 1234567"}).out,
              "added \"Anna Müller\" +491701234567 at 1 in SM\n");
    EXPECT_EQ(contacts({"add", "", "112", "--index", "9"}).out, "added 112 at 9 in SM\n");
    EXPECT_EQ(contacts({"add", "БОРИС", "0170,12"}).out, "added \"БОРИС\" 0170p12 at 2 in SM\n");
    EXPECT_EQ(contacts({"show", "1"}).out, "index:   1 in SM\n"
                                           "name:    Anna Müller\n"
                                           "number:  +491701234567\n");
    EXPECT_EQ(contacts({"list"}).out, "INDEX  NAME         NUMBER\n"
                                      "1      Anna Müller  +491701234567\n"
                                      "2      БОРИС        0170p12\n"
                                      "9                   112\n"
                                      "\n3 contacts in SM, 3 of 250 locations used\n");
    const auto found = [this](const std::string &text) {
        std::vector<unsigned> indexes;
        const Json document = contactsJson({"find", text});
        for (const Json &contact : document["contacts"]) { indexes.push_back(contact["index"]); }
        return indexes;
    };
    EXPECT_EQ(found("борис"), (std::vector<unsigned>{2}));
    EXPECT_EQ(found("MÜLL"), (std::vector<unsigned>{1}));
    EXPECT_EQ(found("170 12"), (std::vector<unsigned>{1}));
    EXPECT_EQ(found("170"), (std::vector<unsigned>{1, 2}));
    EXPECT_EQ(contacts({"edit", "9", "--name", "Help"}).out, "changed 9 in SM: \"Help\" 112\n");
    EXPECT_EQ(contactsJson({
                  "show", "9"
    }),
              Json({{"storage", "SM"}, {"index", 9}, {"name", "Help"}, {"number", "112"}}));
    EXPECT_EQ(contacts({"delete", "9"}).out,
              "deleted 1 contact from SM, 2 of 250 locations used\n");
}

TEST_F(ContactsTool, ThePhonebookOfTheModemIsAnother) {
    add("Anna", "1");
    ASSERT_EQ(contacts({"add", "Bob", "2", "--storage", "ME"}).code, OK);
    EXPECT_EQ(held("sm"), (Entries{
                              {1, {"Anna", "1"}}
    }));
    EXPECT_EQ(held("me"), (Entries{
                              {1, {"Bob", "2"}}
    }));
}

TEST_F(ContactsTool, StorageAndCharacterSetAreGivenBackWhateverHappens) {
    add("Anna", "1");
    for (const std::string charset : {"IRA", "GSM", "UCS2"}) {
        for (const std::string storage : {"SM", "ME"}) {
            at("AT+CSCS=\"" + charset + "\"");
            at("AT+CPBS=\"" + storage + "\"");
            at(storage == "SM" ? "AT+CMEE=0" : "AT+CMEE=2");
            for (const Arguments &arguments : {
                     Arguments{"list"},
                     { "show",                "9"},
                     { "edit",                   "1", "--number", "2"},
                     { "add", "1234567890123456789", "1"},
                     { "list",            "--storage", "me"}
            }) {
                contacts(arguments);
                EXPECT_TRUE(contains(at("AT+CSCS?"), "\"" + charset + "\"")) << arguments[0];
                EXPECT_TRUE(contains(at("AT+CPBS?"), "\"" + storage + "\"")) << arguments[0];
                EXPECT_TRUE(contains(at("AT+CMEE?"), storage == "SM" ? ": 0" : ": 2"));
            }
        }
    }
}

TEST_F(ContactsTool, NothingRawOfANameReachesTheTerminal) {
    at("AT+CSCS=\"UCS2\"");
    at("AT+CPBW=1,\"1\",129,\"" + hexOf("a\x1B[31m\u202E\n") + "\"");
    EXPECT_TRUE(contains(contacts({"list"}).out, "1      a␛[31m<U+202E>⏎  1\n"));
    EXPECT_TRUE(contains(contacts({"show", "1"}).out, "a␛[31m<U+202E>⏎\n"));
    EXPECT_EQ(contactsJson({"show", "1"})["name"], "a\x1B[31m\u202E\n");
    EXPECT_EQ(contactsJson({"list"})["contacts"][0]["name"], "a\x1B[31m\u202E\n");
}

TEST_F(ContactsTool, ANumberBeyondTheDecodersTwentyIsShownWhole) {
    start({"--pb-number-max", "40"});
    const std::string number = "+12345678901234567890123456789";
    at("AT+CSCS=\"UCS2\"");
    at("AT+CPBW=1,\"" + number + "\",145,\"" + hexOf("Long") + "\"");
    EXPECT_EQ(held(), (Entries{
                          {1, {"Long", number}}
    }));
    // A new name keeps it.
    EXPECT_EQ(contacts({"edit", "1", "--name", "Longer"}).code, OK);
    EXPECT_EQ(held(), (Entries{
                          {1, {"Longer", number}}
    }));
}

TEST_F(ContactsTool, AnInternationalNumberShowsItsPlus) {
    at("AT+CSCS=\"UCS2\"");
    at("AT+CPBW=1,\"49170\",145,\"" + hexOf("A") + "\"");
    at("AT+CPBW=2,\"49170\",129,\"" + hexOf("B") + "\"");
    EXPECT_EQ(held(), (Entries{
                          {1, {"A", "+49170"}},
                          {2,  {"B", "49170"}}
    }));
}

TEST_F(ContactsTool, AModemThatCallsEmptyLocationsNotFoundIsUnderstood) {
    importAll({
        {"A", "1"},
        {"B", "2"},
        {"C", "3"}
    });
    ASSERT_EQ(contacts({"delete", "2"}).code, OK);
    fault("+CPBR=2=cme=22");
    fault("+CPBW=2=cme=22");
    for (const char *errors : {"AT+CMEE=0", "AT+CMEE=2"}) {
        at(errors);
        EXPECT_EQ(held().size(), 2U);
    }
    expectRefusal({"show", "2"}, NO_MESSAGE, "there is no contact 2");
    EXPECT_EQ(contacts({"delete", "2"}).code, NO_MESSAGE);
}

TEST_F(ContactsTool, AnEntryThatMakesNoSenseIsLeftOutAndNotOverwritten) {
    importAll({
        {"A", "1"},
        {"B", "2"},
        {"C", "3"}
    });
    fault("+CPBR=2=unsolicited=+CPBR: 2,broken");
    const Result list = contacts({"list"});
    EXPECT_EQ(list.code, OK) << list;
    EXPECT_TRUE(contains(list.err, "1 of 3 contacts could not be read: the modem's replies for 2"))
        << list;
    EXPECT_EQ(contacts({"export"}).code, IN_PART);
    expectRefusal({"show", "2"}, UNREADABLE, "the modem's reply makes no sense");
    EXPECT_EQ(contacts({"add", "D", "4"}).out, "added \"D\" 4 at 4 in SM\n");
    EXPECT_EQ(contacts({"import", "-"}, "name,number\nE,5\n").out, "wrote 1 contact to SM at 5\n");
}

TEST_F(ContactsTool, WhatTheModemRefusesIsToldInItsWords) {
    fault("+CPBS=*=cme=10");
    expectRefusal({"list"}, REFUSED, "select the phonebook SM: SIM not inserted (+CME ERROR: 10)",
                  "put a SIM card");
    clearFaults();
    fault("+CSCS=*=error");
    expectRefusal({"list"}, REFUSED, "set the character set UCS2: ERROR");
    clearFaults();
    fault("+CPBR=?=cme=13");
    expectRefusal({"list"}, REFUSED, "read the phonebook's limits: SIM failure");
}

TEST_F(ContactsTool, WithoutManagerOrModemTheToolSaysWhatToDo) {
    fault("+CPBR=1=silence");
    add("A", "1"); // used is 0: nothing is read
    const Result silent = contacts({"list"});
    EXPECT_EQ(silent.code, NO_ANSWER) << silent;
    EXPECT_TRUE(contains(silent.err, "the modem does not answer (status 29)")) << silent;
    manager_->stop();
    for (const Arguments &arguments : {
             Arguments{  "list"},
             {  "show","1"},
             {  "find",       "a"},
             {   "add","a", "1"},
             {  "edit","1", "--name", "x"},
             {"delete",    "1"},
             {"export"}
    }) {
        expectRefusal(arguments, NO_MANAGER, "no modem manager is running", "smspb-modemd");
    }
}

// What a command writes to a terminal that is its standard error; its output goes nowhere.
std::string onTerminal(const Arguments &command, const Environment &environment) {
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        for (const auto &[name, value] : environment) { setenv(name.c_str(), value.c_str(), 1); }
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        std::vector<char *> values;
        for (const std::string &argument : command) {
            values.push_back(const_cast<char *>(argument.c_str()));
        }
        values.push_back(nullptr);
        execv(values[0], values.data());
        _exit(127);
    }
    std::string text;
    std::array<char, 4096> chunk{};
    for (ssize_t got = 0; (got = ::read(terminal, chunk.data(), chunk.size())) > 0;) {
        text.append(chunk.data(), static_cast<std::size_t>(got));
    }
    close(terminal);
    waitpid(child, nullptr, 0);
    return text;
}

TEST_F(ContactsTool, ProgressIsShownAfterASecondAndOnlyToATerminal) {
    importAll(manyEntries(12));
    EXPECT_EQ(onTerminal(command({"contacts", "list"}), environment()), "");
    fault("+CPBR=*=delay=100");
    const std::string shown = onTerminal(command({"contacts", "list"}), environment());
    EXPECT_TRUE(contains(shown, "\rreading contacts, ")) << shown;
    EXPECT_TRUE(contains(shown, " of 12\x1B[K")) << shown;
    EXPECT_TRUE(shown.ends_with("\r\x1B[K")) << shown;
    EXPECT_EQ(onTerminal(command({"--json", "contacts", "list"}), environment()), "");
    EXPECT_EQ(contacts({"list"}).err, "");
}

TEST_F(ContactsTool, EveryCommandExplainsItselfWithExamples) {
    manager_->stop();
    for (const char *name : {"list", "show", "find", "add", "edit", "delete", "export", "import"}) {
        const Result help = contacts({name, "--help"});
        EXPECT_EQ(help.code, OK) << help;
        EXPECT_TRUE(contains(help.out, "Examples:\n  smspb contacts " + std::string(name))) << help;
        EXPECT_TRUE(contains(contacts({"--help"}).out, name));
    }
}

} // namespace

// The simulated modem as a process, spoken to over its terminal. PDUs and replies are written by
// hand from TS 23.040, 27.005, 27.007 and V.250.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto SOON = 5000ms; // for what must come; ends a test that would hang

// ---- octets by hand ----

const std::string OWN = "0B915155001000F0";    // TP-DA or TP-OA +15550001000
const std::string OTHER = "0B915155002000F0";  // +15550002000
const std::string CENTRE = "07915155000090F9"; // the service centre +15550000099
const std::string HELLO = "0005E8329BFD06";    // TP-DCS 0, TP-UDL 5, "hello" in septets
const std::string TIME = "<time>";             // stands for any TP-SCTS

// SUBMIT without service centre and validity, TP-PID 0; 18 octets when the body is HELLO.
std::string submit(const std::string &destination, const std::string &body,
                   const std::string &first = "01") {
    return "00" + first + "00" + destination + "00" + body;
}

// The same, with the service centre in front, as it comes back: 24 octets when the body is HELLO.
std::string deliver(const std::string &body, const std::string &first = "04") {
    return CENTRE + first + OWN + "00" + body.substr(0, 2) + TIME + body.substr(2);
}

// ---- a process ----

class Directory {
public:
    Directory() {
        std::string name = (fs::temp_directory_path() / "simmodem-XXXXXX").string();
        if (::mkdtemp(name.data()) != nullptr) { path_ = name; }
    }
    ~Directory() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;
    fs::path operator/(const char *name) const { return path_ / name; }

private:
    fs::path path_;
};

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    int get() const { return fd_; }
    void reset(int fd = -1) {
        if (fd_ >= 0) { ::close(fd_); }
        fd_ = fd;
    }

private:
    int fd_;
};

// Reads what is there within the time; nothing at the end of file and when nothing comes.
std::string readSome(int fd, steady_clock::time_point until) {
    const auto left = std::chrono::ceil<milliseconds>(until - steady_clock::now());
    pollfd waiting{fd, POLLIN, 0};
    if (::poll(&waiting, 1, std::max(0, static_cast<int>(left.count()))) != 1) { return {}; }
    std::array<char, 4096> buffer{};
    const ssize_t count = ::read(fd, buffer.data(), buffer.size());
    return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
}

struct Outcome {
    int status = -1; // the exit status, -1 for a process that a signal ended
    std::string output;
};

class Process {
public:
    Process(const std::vector<std::string> &options, const char *zone = nullptr) {
        std::array<int, 2> out{};
        if (::pipe2(out.data(), O_CLOEXEC) != 0) { return; }
        std::vector<std::string> words{SIMMODEM_PROGRAM};
        words.insert(words.end(), options.begin(), options.end());
        std::vector<char *> arguments;
        for (std::string &word : words) { arguments.push_back(word.data()); }
        arguments.push_back(nullptr);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(out[1], STDOUT_FILENO);
            ::dup2(out[1], STDERR_FILENO);
            if (zone != nullptr) { ::setenv("TZ", zone, 1); }
            ::execv(arguments[0], arguments.data());
            ::_exit(127);
        }
        ::close(out[1]);
        output_.reset(out[0]);
    }
    ~Process() {
        if (pid_ > 0) { end(SIGTERM); }
    }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    std::string readLine() {
        const auto until = steady_clock::now() + SOON;
        std::string line;
        while (!line.ends_with('\n')) {
            const std::string more = readSome(output_.get(), until);
            if (more.empty()) { break; }
            line += more;
        }
        return line;
    }

    // Sends the signal, if any, and waits for the end.
    Outcome end(int signal = 0) {
        if (signal != 0) { ::kill(pid_, signal); }
        Outcome outcome;
        const auto until = steady_clock::now() + SOON;
        for (std::string more = "-"; !more.empty();) {
            more = readSome(output_.get(), until);
            outcome.output += more;
        }
        int status = 0;
        if (steady_clock::now() >= until) { ::kill(pid_, SIGKILL); }
        ::waitpid(std::exchange(pid_, -1), &status, 0);
        if (WIFEXITED(status)) { outcome.status = WEXITSTATUS(status); }
        return outcome;
    }

private:
    pid_t pid_ = -1;
    Descriptor output_;
};

// ---- a modem ----

bool isFinal(std::string_view text) {
    static constexpr std::array<std::string_view, 4> WORDS = {"\r\nOK\r\n", "\r\nERROR\r\n",
                                                              "\r\nNO CARRIER\r\n", "\r\n> "};
    for (const std::string_view word : WORDS) {
        if (text.ends_with(word)) { return true; }
    }
    const std::size_t error = std::max(text.rfind("\r\n+CMS ERROR: ") + 1, //
                                       text.rfind("\r\n+CME ERROR: ") + 1);
    return error != 0 && text.find('\n', error + 1) == text.size() - 1;
}

class Modem {
public:
    explicit Modem(std::vector<std::string> options = {}, const char *zone = nullptr)
        : process_(withLink(std::move(options)), zone) {
        EXPECT_EQ(process_.readLine(), "ready: " + link().string() + "\n");
        open();
    }

    fs::path link() const { return directory_ / "modem"; }
    Process &process() { return process_; }

    void open() { terminal_.reset(::open(link().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)); }
    void close() { terminal_.reset(); }
    int fd() const { return terminal_.get(); }

    void write(std::string_view text) {
        while (!text.empty()) {
            const ssize_t count = ::write(fd(), text.data(), text.size());
            ASSERT_GT(count, 0) << std::generic_category().message(errno);
            text.remove_prefix(static_cast<std::size_t>(count));
        }
    }

    // Reads until `enough` holds of everything read; what came until then when it never does.
    template <typename Enough> std::string readUntil(Enough enough) {
        const auto until = steady_clock::now() + SOON;
        std::string text;
        while (!enough(text)) {
            const std::string more = readSome(fd(), until);
            if (more.empty()) { break; }
            text += more;
        }
        return text;
    }
    std::string readTo(const std::string &end) {
        return readUntil([&](const std::string &text) { return text.ends_with(end); });
    }
    std::string readReply() { return readUntil(isFinal); }

    // Sends a command line, or data behind a prompt, and gives the reply.
    std::string ask(const std::string &text) {
        write(text + (text.ends_with('\x1A') || text.ends_with('\x1B') ? "" : "\r"));
        return readReply();
    }

    // The prompted commands: the length counts the TPDU alone.
    std::string askWithPdu(const std::string &command, const std::string &pdu,
                           const std::string &more = "") {
        const std::size_t centre = 2 * (1 + std::stoul(pdu.substr(0, 2), nullptr, 16));
        const std::string length = std::to_string((pdu.size() - centre) / 2);
        const std::string prompt = ask(command + "=" + length + more);
        return prompt == "\r\n> " ? ask(pdu + "\x1A") : prompt;
    }

private:
    std::vector<std::string> withLink(std::vector<std::string> options) const {
        options.insert(options.begin(), {"--link", link().string()});
        return options;
    }

    Directory directory_;
    Process process_;
    Descriptor terminal_;
};

// A modem that does not echo.
class Quiet : public Modem {
public:
    explicit Quiet(std::vector<std::string> options = {}, const char *zone = nullptr)
        : Modem(std::move(options), zone) {
        ask("ATE0");
    }
};

// Puts "<time>" in the place of each time stamp, so that replies can be compared.
std::string withoutTimes(const std::string &expected, std::string actual) {
    static constexpr std::size_t DIGITS = 14;
    for (std::size_t at = expected.find(TIME); at != std::string::npos;
         at = expected.find(TIME, at + 1)) {
        if (at + DIGITS <= actual.size()) { actual.replace(at, DIGITS, TIME); }
    }
    return actual;
}

// ---- command -> reply ----

struct Step {
    std::string send;  // a command line; data and raw text end in Ctrl-Z, ESC or CR of their own
    std::string reply; // all that comes, to its last character
};

struct Script {
    const char *name;
    std::vector<std::string> options;
    std::vector<Step> steps;
};

std::string lines(std::initializer_list<std::string> texts) {
    std::string all;
    for (const std::string &text : texts) { all += "\r\n" + text + "\r\n"; }
    return all;
}
std::string okay(const std::string &information) { return lines({information, "OK"}); }

const std::string OK = "\r\nOK\r\n";
const std::string ERROR = "\r\nERROR\r\n";
const std::string PROMPT = "\r\n> ";
std::string cms(int code) { return "\r\n+CMS ERROR: " + std::to_string(code) + "\r\n"; }

// Runs the steps one after the other; each reply must be exactly what is expected.
void run(Modem &modem, const std::vector<Step> &steps) {
    for (const Step &step : steps) {
        const char last = step.send.empty() ? '\0' : step.send.back();
        const bool ended = last == '\r' || last == '\x1A' || last == '\x1B' || last == '/';
        modem.write(ended ? step.send : step.send + "\r");
        const auto size = [&](const std::string &text) {
            return withoutTimes(step.reply, text).size() >= step.reply.size();
        };
        const std::string reply = modem.readUntil(size);
        ASSERT_EQ(withoutTimes(step.reply, reply), step.reply) << "to " << step.send;
    }
    modem.write("AT\r"); // nothing more may stand between the last reply and this one
    EXPECT_EQ(modem.readReply(), OK);
}

class Scripts : public ::testing::TestWithParam<Script> {};

TEST_P(Scripts, Run) {
    Quiet modem(GetParam().options);
    run(modem, GetParam().steps);
}

template <typename Row> std::string nameOf(const ::testing::TestParamInfo<Row> &info) {
    return info.param.name;
}

const std::string LONG_LINE(2100, 'E');

INSTANTIATE_TEST_SUITE_P(
    Line, Scripts,
    ::testing::Values(
        Script{
            "LowerCaseIsUpperCase", {                             },
             {{"at+cmgf?", okay("+CMGF: 0")}}
},
        Script{"MixedPrefixIsTolerated", {}, {{"aT", OK}, {"At", OK}}},
        Script{"BlanksMeanNothing",
               {},
               {{"AT+CSCA = \"+123\"", OK},
                {"AT + C S C A ?", okay("+CSCA: \"+123\",145")},
                {"AT+CPMS= , \"ME\" ", okay("+CPMS: 0,50,0,100,0,50")}}},
        Script{"LineFeedBehindTheLineIsSkipped", {}, {{"AT\r\nAT\r", OK + OK}}},
        Script{"CharactersBeforeAtAreSkipped", {}, {{"xyz\x1B\x01 AAT", OK}}},
        Script{"SlashRepeatsTheLastLine",
               {},
               {{"AT+CSQ", okay("+CSQ: 21,99")},
                {"A/", okay("+CSQ: 21,99")},
                {"a/", okay("+CSQ: 21,99")}}},
        Script{"BackspaceTakesACharacterBack", {}, {{"AT+CSX\bQ", okay("+CSQ: 21,99")}}},
        Script{"ControlCharactersInALineMeanNothing",
               {},
               {{"AT+\x01"
                 "CSQ\n",
                 okay("+CSQ: 21,99")}}},
        Script{
            "SemicolonSeparatesCommands",
            {},
            {{"AT+CMGF?;+CSQ;+CSCS?", lines({"+CMGF: 0", "+CSQ: 21,99", "+CSCS: \"IRA\"", "OK"})}}},
        Script{"SemicolonAtTheEndIsTolerated", {}, {{"AT+CMEE=1;+CMEE?;", okay("+CMEE: 1")}}},
        Script{"SemicolonInAStringBelongsToIt",
               {},
               {{"AT+CSCB=0,\"1;2\";+CSCB?", okay("+CSCB: 0,\"1;2\",\"\"")}}},
        Script{"BasicCommandsStandSideBySide",
               {},
               {{"ATE0Q0V1X4&C1&D2+CMEE=2;+CMEE?", okay("+CMEE: 2")}}},
        Script{"AnErrorEndsTheLine",
               {},
               {{"AT+CMEE=1;+CNOSUCH;+CMEE=2", "\r\n+CME ERROR: 4\r\n"},
                {"AT+CMEE?", okay("+CMEE: 1")}}},
        Script{"InformationBeforeAnErrorStays",
               {},
               {{"AT+CSQ;+CMGR=7", lines({"+CSQ: 21,99", "+CMS ERROR: 321"})}}},
        Script{"EscapedCharactersInStringsAreRead",
               {},
               {{"AT+CSCB=0,\"1\\2c2\"", OK}, {"AT+CSCB?", okay("+CSCB: 0,\"1,2\",\"\"")}}},
        Script{"MalformedCommandsAreRefused",
               {},
               {{"AT+CSCA=\"+1", ERROR},
                {"AT+CSCA=\"+1\"2", ERROR},
                {"AT+CMGF?1", ERROR},
                {"ATE=1", ERROR},
                {"AT&", ERROR},
                {"AT!", ERROR},
                {"AT99999999999", ERROR},
                {"ATE99999999999", ERROR}}},
        Script{"OverlongLineIsRefused", {}, {{"AT" + LONG_LINE, ERROR}, {"AT", OK}}},
        Script{
            "ShortResultsWithoutVerbose",
            {},
            {{"ATV0", "0\r"}, {"AT+CSQ", "+CSQ: 21,99\r\n0\r"}, {"AT+CNO", "4\r"}, {"ATV1", OK}}},
        Script{"QuietSuppressesResults", {}, {{"ATQ1+CSQ", "\r\n+CSQ: 21,99\r\n"}, {"ATQ0", OK}}},
        Script{"TerminatorAndLineFeedAreRegisters",
               {},
               {{"ATS3?", okay("013")},
                {"ATS4=33", "\r!OK\r!"},
                {"ATS4=10", OK},
                {"ATS3=35\r", "#\nOK#\n"},
                {"AT#AT+CSQ#AT S3=13#\r", "#\nOK#\n#\n+CSQ: 21,99#\n#\nOK#\n\r\nOK\r\n"}}},
        Script{"UnknownRegistersAreRefused",
               {},
               {{"ATS99?", ERROR}, {"ATS99=1", ERROR}, {"ATS3=200", ERROR}, {"ATS0=2", OK}}},
        Script{"BasicNumbersHaveARange", {}, {{"ATE2", ERROR}, {"ATV3", ERROR}, {"ATX4", OK}}},
        Script{
            "CallsFindNoCarrier",
            {},
            {{"ATD*99#;+CSQ", "\r\nNO CARRIER\r\n"}, {"ATO", "\r\nNO CARRIER\r\n"}, {"ATH", OK}}}),
    nameOf<Script>);

INSTANTIATE_TEST_SUITE_P(
    Settings, Scripts,
    ::testing::Values(
        Script{
            "IdentificationIsGiven",
            {                                                },
            { {"ATI", okay("Manufacturer: smspb\r\nModel: simulated modem\r\nRevision: 1.0.0")},{"AT+CGMI", okay("smspb")},
              {"AT+CGMM", okay("simulated modem")},
              {"AT+CGMR", okay("1.0.0")},
              {"AT+CGSN", okay("490154203237518")},
              {"AT+GMI;+GMM;+GMR;+GSN",
              lines({"smspb", "simulated modem", "1.0.0", "490154203237518", "OK"})},
              {"AT+GCAP", okay("+GCAP: +CGSM")},
              {"AT+CIMI", okay("001010123456789")},
              {"AT+CNUM", okay("+CNUM: ,\"+15550001000\",145")}}
},
        Script{"TestFormsShowTheRanges",
               {},
               {{"AT+CMGF=?", okay("+CMGF: (0,1)")},
                {"AT+CPMS=?", okay("+CPMS: (\"ME\",\"SM\"),(\"ME\",\"SM\"),(\"ME\",\"SM\")")},
                {"AT+CNMI=?", okay("+CNMI: (0-3),(0-3),(0-3),(0-2),(0,1)")},
                {"AT+CSCS=?", okay("+CSCS: (\"IRA\",\"GSM\",\"UCS2\")")},
                {"AT+CMGL=?", okay("+CMGL: (0-4)")},
                {"AT+CMGD=?", okay("+CMGD: (),(0-4)")},
                {"AT+CSCB=?", okay("+CSCB: (0,1)")},
                {"AT+CMEE=?", okay("+CMEE: (0-2)")},
                {"AT+CREG=?", okay("+CREG: (0-2)")},
                {"AT+CSMS=?", okay("+CSMS: (0)")},
                {"AT+CSQ=?", okay("+CSQ: (0-31,99),(0-7,99)")},
                {"AT+CSCA=?;+CMGS=?;+CMGW=?;+CMGR=?;+CMSS=?;+CPIN=?;+CGMI=?", OK}}},
        Script{"ErrorReportsFollowTheirSetting",
               {},
               {{"AT+CNOSUCH", ERROR},
                {"AT+CMEE=1", OK},
                {"AT+CNOSUCH", "\r\n+CME ERROR: 4\r\n"},
                {"AT+CSCS=\"NONE\"", "\r\n+CME ERROR: 50\r\n"},
                {"AT+CMEE=2", OK},
                {"AT+CNOSUCH", "\r\n+CME ERROR: operation not supported\r\n"},
                {"AT+CSCS=\"NONE\"", "\r\n+CME ERROR: incorrect parameters\r\n"},
                {"AT+CPIN=\"1234\"", "\r\n+CME ERROR: operation not allowed\r\n"},
                {"AT+CMEE=3", "\r\n+CME ERROR: incorrect parameters\r\n"},
                {"AT+CMEE=1,1", "\r\n+CME ERROR: incorrect parameters\r\n"},
                {"AT+CMEE", "\r\n+CME ERROR: operation not supported\r\n"},
                {"AT+CMEE?", okay("+CMEE: 2")},
                {"AT+CMEE=", OK},
                {"AT+CMEE?", okay("+CMEE: 0")}}},
        Script{"MessageErrorsAreNumbersWhateverTheSetting",
               {},
               {{"AT+CMGR=1", cms(321)}, {"AT+CMEE=2;+CMGR=1", cms(321)}}},
        Script{"SimAndNetworkAreThere",
               {},
               {{"AT+CPIN?", okay("+CPIN: READY")},
                {"AT+CREG?", okay("+CREG: 0,1")},
                {"AT+CREG=2", OK},
                {"AT+CREG?", okay("+CREG: 2,1,\"00C3\",\"000012AB\"")},
                {"AT+CREG=3", ERROR},
                {"AT+CSQ", okay("+CSQ: 21,99")}}},
        Script{"CharacterSetIsKept",
               {},
               {{"AT+CSCS?", okay("+CSCS: \"IRA\"")},
                {"AT+CSCS=\"GSM\"", OK},
                {"AT+CSCS?", okay("+CSCS: \"GSM\"")},
                {"AT+CSCS=\"UCS2\"", OK},
                {"AT+CSCS?", okay("+CSCS: \"UCS2\"")},
                {"AT+CSCS=GSM", ERROR},
                {"AT+CSCS=\"\"", ERROR},
                {"AT+CSCS?", okay("+CSCS: \"UCS2\"")}}},
        Script{"ServiceCentreIsKept",
               {},
               {{"AT+CSCA?", okay("+CSCA: \"+15550000099\",145")},
                {"AT+CSCA=\"5550\"", OK},
                {"AT+CSCA?", okay("+CSCA: \"5550\",129")},
                {"AT+CSCA=\"5550\",145", OK},
                {"AT+CSCA?", okay("+CSCA: \"+5550\",145")},
                {"AT+CSCA=\"+12345678901234567890\"", OK},
                {"AT+CSCA=\"123456789012345678901\"", cms(304)},
                {"AT+CSCA=\"12a\"", cms(304)},
                {"AT+CSCA=\"+\"", cms(304)},
                {"AT+CSCA=123", cms(304)},
                {"AT+CSCA=\"1\",300", cms(304)},
                {"AT+CSCA", cms(303)},
                {"AT+CSCA?", okay("+CSCA: \"+12345678901234567890\",145")},
                {"AT+CSCA=\"\"", OK},
                {"AT+CSCA?", okay("+CSCA: \"\",129")}}},
        Script{"ServiceCentreIsHexadecimalWithUcs2",
               {},
               {{"AT+CSCS=\"UCS2\"", OK},
                {"AT+CSCA=\"002B00310032\"", OK},
                {"AT+CSCA?", okay("+CSCA: \"002B00310032\",145")},
                {"AT+CSCA=\"+4917\"", cms(304)},
                {"AT+CSCA=\"004\"", cms(304)},
                {"AT+CSCS=\"IRA\"", OK},
                {"AT+CSCA?", okay("+CSCA: \"+12\",145")}}},
        Script{"IndicationModeIsKept",
               {},
               {{"AT+CNMI?", okay("+CNMI: 2,0,0,0,0")},
                {"AT+CNMI=2,1,0,0,0", OK},
                {"AT+CNMI?", okay("+CNMI: 2,1,0,0,0")},
                {"AT+CNMI=,,,2", OK},
                {"AT+CNMI?", okay("+CNMI: 2,1,0,2,0")},
                {"AT+CNMI=4,1,0,0,0", cms(304)},
                {"AT+CNMI=2,4", cms(304)},
                {"AT+CNMI=2,1,4", cms(304)},
                {"AT+CNMI=2,1,0,3", cms(304)},
                {"AT+CNMI=2,1,0,0,2", cms(304)},
                {"AT+CNMI=2,1,0,0,0,0", cms(304)},
                {"AT+CNMI=-1", cms(304)},
                {"AT+CNMI?", okay("+CNMI: 2,1,0,2,0")}}},
        Script{"BroadcastsAreKept",
               {},
               {{"AT+CSCB?", okay("+CSCB: 0,\"\",\"\"")},
                {"AT+CSCB=1", OK},
                {"AT+CSCB?", okay("+CSCB: 1,\"\",\"\"")},
                {"AT+CSCB=0,\"0,1,50-60\",\"0-3\"", OK},
                {"AT+CSCB?", okay("+CSCB: 0,\"0,1,50-60\",\"0-3\"")},
                {"AT+CSCB=2", cms(304)},
                {"AT+CSCB=0,5", cms(304)}}},
        Script{"StoragesAreChosenOneByOne",
               {"--me-size", "7", "--sm-size", "3"},
               {{"AT+CPMS?", okay("+CPMS: \"SM\",0,3,\"SM\",0,3,\"SM\",0,3")},
                {"AT+CPMS=\"ME\"", okay("+CPMS: 0,7,0,3,0,3")},
                {"AT+CPMS=,\"ME\"", okay("+CPMS: 0,7,0,7,0,3")},
                {"AT+CPMS=\"SM\",\"SM\",\"ME\"", okay("+CPMS: 0,3,0,3,0,7")},
                {"AT+CPMS?", okay("+CPMS: \"SM\",0,3,\"SM\",0,3,\"ME\",0,7")},
                {"AT+CPMS=\"ME\",\"XX\"", cms(304)},
                {"AT+CPMS=SM", cms(304)},
                {"AT+CPMS=\"SM\",\"SM\",\"SM\",\"SM\"", cms(304)},
                {"AT+CPMS?", okay("+CPMS: \"SM\",0,3,\"SM\",0,3,\"ME\",0,7")}}},
        Script{"MessageServiceIsPhaseTwo",
               {},
               {{"AT+CSMS?", okay("+CSMS: 0,1,1,1")},
                {"AT+CSMS=0", okay("+CSMS: 1,1,1")},
                {"AT+CSMS=1", cms(304)}}},
        Script{"TextModeRefusesMessages",
               {},
               {{"AT+CMGF=1", OK},
                {"AT+CMGF?", okay("+CMGF: 1")},
                {"AT+CMGS=\"+15550001000\"", cms(303)},
                {"AT+CMGW=\"+15550001000\"", cms(303)},
                {"AT+CMGR=1", cms(303)},
                {"AT+CMGL=\"ALL\"", cms(303)},
                {"AT+CMGF=2", cms(305)},
                {"AT+CMGF=0", OK},
                {"AT+CMGF=2", cms(304)}}},
        Script{"ProfileAndFactorySettingsComeBack",
               {},
               {{"AT+CMEE=1;+CSCS=\"GSM\";+CNMI=2,1,0,0,0", OK},
                {"AT&W+CMEE=2;+CMGF=1", OK},
                {"ATZ+CMEE?;+CSCS?;+CNMI?;+CMGF?",
                 lines({"+CMEE: 1", "+CSCS: \"GSM\"", "+CNMI: 2,1,0,0,0", "+CMGF: 0", "OK"})},
                {"AT&FE0", OK},
                {"AT+CMEE?;+CSCS?;+CNMI?",
                 lines({"+CMEE: 0", "+CSCS: \"IRA\"", "+CNMI: 2,0,0,0,0", "OK"})}}},
        Script{"StoragesAndServiceCentreOutliveAReset",
               {},
               {{"AT+CPMS=\"ME\",\"ME\",\"ME\";+CSCA=\"+77\"", okay("+CPMS: 0,100,0,100,0,100")},
                {"AT&F+CPMS?;+CSCA?;E0", lines({"+CPMS: \"ME\",0,100,\"ME\",0,100,\"ME\",0,100",
                                                "+CSCA: \"+77\",145", "OK"})}}}),
    nameOf<Script>);

const std::string HELLO_SELF = submit(OWN, HELLO) + "\x1A";
const std::string HELLO_OTHER = submit(OTHER, HELLO) + "\x1A";
const std::string READ_UNREAD = okay("+CMGR: 0,,24\r\n" + deliver(HELLO));
const std::string READ_READ = okay("+CMGR: 1,,24\r\n" + deliver(HELLO));

std::string sent(int reference) { return okay("+CMGS: " + std::to_string(reference)); }
std::string written(int index) { return okay("+CMGW: " + std::to_string(index)); }

INSTANTIATE_TEST_SUITE_P(
    Sending, Scripts,
    ::testing::Values(
        Script{
            "AMessageToItselfComesBackUnreadThenRead",
            {                       },
            { {"AT+CNMI=2,1,0,0,0", OK},{"AT+CMGS=18", PROMPT},
              {HELLO_SELF, sent(1) + "\r\n+CMTI: \"SM\",1\r\n"},
              {"AT+CMGR=1", READ_UNREAD},
              {"AT+CMGR=1", READ_READ}}
},
        Script{"AMessageToAnotherVanishes",
               {},
               {{"AT+CNMI=2,1,0,0,0", OK},
                {"AT+CMGS=18", PROMPT},
                {HELLO_OTHER, sent(1)},
                {"AT+CMGL=4", OK}}},
        Script{"TheReferenceCountsUp",
               {},
               {{"AT+CMGS=18", PROMPT},
                {HELLO_OTHER, sent(1)},
                {"AT+CMGS=18", PROMPT},
                {HELLO_OTHER, sent(2)}}},
        Script{"NationalFormOfTheOwnNumberIsTheOwnNumber",
               {},
               {{"AT+CNMI=2,1", OK},
                {"AT+CMGS=17", PROMPT}, // 0555 0001000
                {submit("0B815055001000F0", HELLO).erase(2, 0) + "\x1A", cms(304)},
                {"AT+CMGS=18", PROMPT},
                {submit("0B815055001000F0", HELLO) + "\x1A", sent(1) + "\r\n+CMTI: \"SM\",1\r\n"}}},
        Script{"AShortOwnNumberMatchesOnlyItself",
               {"--number", "1234"},
               {{"AT+CNMI=2,1", OK},
                {"AT+CMGS=14", PROMPT},
                {submit("04812143", HELLO) + "\x1A", sent(1) + "\r\n+CMTI: \"SM\",1\r\n"},
                {"AT+CMGS=16", PROMPT},
                {submit("0781551521F3", HELLO) + "\x1A", sent(2)}}},
        Script{"AnAlphanumericAddressIsNobody",
               {"--number", "12"},
               {{"AT+CNMI=2,1", OK},
                {"AT+CMGS=13", PROMPT},
                {submit("02D021", HELLO) + "\x1A", sent(1)},
                {"AT+CMGL=4", OK}}},
        Script{"TheGivenServiceCentreIsUsed",
               {},
               {{"AT+CMGS=18", PROMPT},
                {"0491214365" + submit(OWN, HELLO).substr(2) + "\x1A", sent(1)},
                {"AT+CMGR=1",
                 okay("+CMGR: 0,,24\r\n0491214365" + deliver(HELLO).substr(CENTRE.size()))}}},
        Script{"WithoutServiceCentreNothingIsSent",
               {},
               {{"AT+CSCA=\"\"", OK}, {"AT+CMGS=18", PROMPT}, {HELLO_SELF, cms(330)}}},
        Script{"EscapeCancels",
               {},
               {{"AT+CMGS=18", PROMPT}, {submit(OWN, HELLO) + "\x1B", OK}, {"AT+CMGL=4", OK}}},
        Script{
            "EscapeCancelsWriting", {}, {{"AT+CMGW=18", PROMPT}, {"\x1B", OK}, {"AT+CMGL=4", OK}}},
        Script{"AnotherLengthIsRefused",
               {},
               {{"AT+CMGS=19", PROMPT},
                {HELLO_SELF, cms(304)},
                {"AT+CMGS=17", PROMPT},
                {HELLO_SELF, cms(304)},
                {"AT+CMGL=4", OK}}},
        Script{"ABadLengthIsRefusedBeforeThePrompt",
               {},
               {{"AT+CMGS=0", cms(304)},
                {"AT+CMGS=165", cms(304)},
                {"AT+CMGS=", cms(304)},
                {"AT+CMGS=x", cms(304)},
                {"AT+CMGS=\"18\"", cms(304)},
                {"AT+CMGS=18,1", cms(304)},
                {"AT+CMGS", cms(303)},
                {"AT+CMGS?", cms(303)},
                {"AT+CMGW=0", cms(304)},
                {"AT+CMGW=18,4", cms(304)}}},
        Script{"TextThatIsNotHexadecimalIsRefused",
               {},
               {{"AT+CMGS=18", PROMPT},
                {"G" + HELLO_SELF.substr(1), cms(304)},
                {"AT+CMGS=18", PROMPT},
                {"0" + HELLO_SELF, cms(304)},
                {"AT+CMGS=18", PROMPT},
                {"\x1A", cms(304)}}},
        Script{
            "LowerCaseAndLineEndsInAPduAreTolerated",
            {},
            {{"AT+CMGS=18", PROMPT}, {"0001000b91515500\r\n1000f000 0005e8329bfd06\x1A", sent(1)}}},
        Script{"AnOverlongPduIsRefused",
               {},
               {{"AT+CMGS=164", PROMPT}, {std::string(3000, '0') + "\x1A", cms(304)}}},
        Script{"FieldsThatDoNotAddUpAreRefused",
               {},
               {{"AT+CMGS=18", PROMPT}, // TP-UDL 6 needs six octets
                {submit(OWN, "0006E8329BFD06") + "\x1A", cms(304)},
                {"AT+CMGS=18", PROMPT}, // TP-UDL 4 needs four
                {submit(OWN, "0004E8329BFD06") + "\x1A", cms(304)},
                {"AT+CMGS=18", PROMPT}, // a header longer than the user data
                {submit(OWN, "000505329BFD06", "41") + "\x1A", cms(304)},
                {"AT+CMGS=18", PROMPT}, // 21 digits
                {submit("15" + OWN.substr(2), HELLO) + "\x1A", cms(304)},
                {"AT+CMGS=18", PROMPT}, // a DELIVER cannot be sent
                {submit(OWN, HELLO, "04") + "\x1A", cms(304)},
                {"AT+CMGS=18", PROMPT}, // a service centre of 12 octets
                {"0C" + std::string(24, '1') + submit(OWN, HELLO).substr(2) + "\x1A", cms(304)}}},
        Script{"EveryValidityFormatIsTaken",
               {},
               {{"AT+CMGS=19", PROMPT}, // relative
                {submit(OWN, "00AA" + HELLO.substr(2), "11") + "\x1A", sent(1)},
                {"AT+CMGR=1", READ_UNREAD},
                {"AT+CMGS=25", PROMPT}, // absolute
                {submit(OWN, "0052704121436500" + HELLO.substr(2), "19") + "\x1A", sent(2)},
                {"AT+CMGR=2", READ_UNREAD},
                {"AT+CMGS=25", PROMPT}, // enhanced
                {submit(OWN, "0001050000000000" + HELLO.substr(2), "09") + "\x1A", sent(3)},
                {"AT+CMGR=3", READ_UNREAD}}},
        Script{"CodingSaysWhatTheLengthCounts",
               {},
               {{"AT+CMGS=15", PROMPT}, // 8-bit
                {submit(OWN, "0402ABCD") + "\x1A", sent(1)},
                {"AT+CMGR=1", okay("+CMGR: 0,,21\r\n" + deliver("0402ABCD"))},
                {"AT+CMGS=15", PROMPT}, // UCS-2
                {submit(OWN, "08020416") + "\x1A", sent(2)},
                {"AT+CMGR=2", okay("+CMGR: 0,,21\r\n" + deliver("08020416"))},
                {"AT+CMGS=15", PROMPT}, // compressed: octets
                {submit(OWN, "2002ABCD") + "\x1A", sent(3)},
                {"AT+CMGS=15", PROMPT}, // class 1, 8-bit
                {submit(OWN, "F502ABCD") + "\x1A", sent(4)},
                {"AT+CMGS=15", PROMPT}, // message waiting, UCS-2
                {submit(OWN, "E0020416") + "\x1A", sent(5)},
                {"AT+CMGS=18", PROMPT}, // reserved group: septets
                {submit(OWN, "80" + HELLO.substr(2)) + "\x1A", sent(6)}}},
        Script{"FlagsAndProtocolGoOver",
               {},
               {{"AT+CMGS=18", PROMPT}, // TP-RP, TP-SRR, TP-RD
                {submit(OWN, HELLO, "A5") + "\x1A", sent(1)},
                {"AT+CMGR=1", okay("+CMGR: 0,,24\r\n" + deliver(HELLO, "A4"))},
                {"AT+CMGS=18", PROMPT}, // TP-PID 0x41
                {"000100" + OWN + "41" + HELLO + "\x1A", sent(2)},
                {"AT+CMGR=2", okay("+CMGR: 0,,24\r\n" + CENTRE + "04" + OWN + "4100" + TIME +
                                   HELLO.substr(2))}}},
        Script{"CommandsBehindTheDataGoOn",
               {},
               {{"AT+CSQ;+CMGS=18;+CMGF?", PROMPT},
                {HELLO_OTHER, lines({"+CSQ: 21,99", "+CMGS: 1", "+CMGF: 0", "OK"})}}}),
    nameOf<Script>);

const std::string DELIVERED = CENTRE + "04" + OWN + "0000" + "42105021430500" + "05E8329BFD06";

INSTANTIATE_TEST_SUITE_P(
    Stored, Scripts,
    ::testing::Values(
        Script{
            "WritingKeepsThePduAndTheStatus",
            {                                                  },
            { {"AT+CMGW=18", PROMPT},{HELLO_OTHER, written(1)},
              {"AT+CMGW=18,3", PROMPT},
              {HELLO_OTHER, written(2)},
              {"AT+CMGW=24,0", PROMPT},
              {DELIVERED + "\x1A", written(3)},
              {"AT+CMGW=24,1", PROMPT},
              {DELIVERED + "\x1A", written(4)},
              {"AT+CMGR=1", okay("+CMGR: 2,,18\r\n" + submit(OTHER, HELLO))},
              {"AT+CMGR=2", okay("+CMGR: 3,,18\r\n" + submit(OTHER, HELLO))},
              {"AT+CMGR=4", okay("+CMGR: 1,,24\r\n" + DELIVERED)},
              {"AT+CMGR=3", okay("+CMGR: 0,,24\r\n" + DELIVERED)},
              {"AT+CMGR=3", okay("+CMGR: 1,,24\r\n" + DELIVERED)}}
},
        Script{"TheStatusMustFitTheMessage",
               {},
               {{"AT+CMGW=18,0", PROMPT},
                {HELLO_OTHER, cms(304)},
                {"AT+CMGW=24", PROMPT},
                {DELIVERED + "\x1A", cms(304)},
                {"AT+CMGW=24,3", PROMPT},
                {DELIVERED + "\x1A", cms(304)},
                {"AT+CMGL=4", OK}}},
        Script{"ListShowsOneStatusOrAll",
               {},
               {{"AT+CMGW=18,2", PROMPT},
                {HELLO_OTHER, written(1)},
                {"AT+CMGW=24,0", PROMPT},
                {DELIVERED + "\x1A", written(2)},
                {"AT+CMGW=18,3", PROMPT},
                {HELLO_OTHER, written(3)},
                {"AT+CMGL=2", okay("+CMGL: 1,2,,18\r\n" + submit(OTHER, HELLO))},
                {"AT+CMGL=3", okay("+CMGL: 3,3,,18\r\n" + submit(OTHER, HELLO))},
                {"AT+CMGL=1", OK},
                {"AT+CMGL=4",
                 okay("+CMGL: 1,2,,18\r\n" + submit(OTHER, HELLO) + "\r\n+CMGL: 2,0,,24\r\n" +
                      DELIVERED + "\r\n+CMGL: 3,3,,18\r\n" + submit(OTHER, HELLO))},
                {"AT+CMGL", OK}, // unread: the list has read it
                {"AT+CMGL=1", okay("+CMGL: 2,1,,24\r\n" + DELIVERED)},
                {"AT+CMGL=5", cms(304)},
                {"AT+CMGD=?", okay("+CMGD: (1,2,3),(0-4)")}}},
        Script{"BadIndexesAreRefused",
               {"--sm-size", "3"},
               {{"AT+CMGR=0", cms(321)},
                {"AT+CMGR=1", cms(321)},
                {"AT+CMGR=4", cms(321)},
                {"AT+CMGR=x", cms(321)},
                {"AT+CMGR=99999999999", cms(321)},
                {"AT+CMGD=0", cms(321)},
                {"AT+CMGD=4", cms(321)},
                {"AT+CMGD=", cms(321)},
                {"AT+CMSS=1", cms(321)},
                {"AT+CMGD=3", OK}}}, // empty, but there
        Script{"DeleteTakesAnIndexOrAFlag",
               {},
               {{"AT+CMGW=18,2", PROMPT},
                {HELLO_OTHER, written(1)},
                {"AT+CMGW=24,0", PROMPT},
                {DELIVERED + "\x1A", written(2)},
                {"AT+CMGW=18,3", PROMPT},
                {HELLO_OTHER, written(3)},
                {"AT+CMGW=24,1", PROMPT},
                {DELIVERED + "\x1A", written(4)},
                {"AT+CMGW=18,2", PROMPT},
                {HELLO_OTHER, written(5)},
                {"AT+CMGD=5", OK},
                {"AT+CMGD=?", okay("+CMGD: (1,2,3,4),(0-4)")},
                {"AT+CMGD=2,1", OK}, // read
                {"AT+CMGD=?", okay("+CMGD: (1,2,3),(0-4)")},
                {"AT+CMGD=2,2", OK}, // and sent
                {"AT+CMGD=?", okay("+CMGD: (1,2),(0-4)")},
                {"AT+CMGD=2,3", OK}, // and unsent
                {"AT+CMGD=?", okay("+CMGD: (2),(0-4)")},
                {"AT+CMGD=99,4", OK}, // and unread
                {"AT+CMGD=?", okay("+CMGD: (),(0-4)")},
                {"AT+CMGD=1,5", cms(304)}}},
        Script{"AFreedPlaceIsFilledFirst",
               {},
               {{"AT+CMGW=18", PROMPT},
                {HELLO_OTHER, written(1)},
                {"AT+CMGW=18", PROMPT},
                {HELLO_OTHER, written(2)},
                {"AT+CMGD=1", OK},
                {"AT+CMGW=18", PROMPT},
                {HELLO_OTHER, written(1)}}},
        Script{"AFullStorageRefusesWriting",
               {"--sm-size", "1"},
               {{"AT+CMGW=18", PROMPT},
                {HELLO_OTHER, written(1)},
                {"AT+CMGW=18", PROMPT},
                {HELLO_OTHER, cms(322)},
                {"AT+CPMS?", okay("+CPMS: \"SM\",1,1,\"SM\",1,1,\"SM\",1,1")},
                {"AT+CPMS=,\"ME\"", okay("+CPMS: 1,1,0,100,1,1")},
                {"AT+CMGW=18", PROMPT},
                {HELLO_OTHER, written(1)}}},
        Script{"AStorageWithoutPlacesIsFull",
               {"--sm-size", "0"},
               {{"AT+CMGW=18", PROMPT}, {HELLO_OTHER, cms(322)}}},
        Script{"TheThreeUsesHaveTheirStorage",
               {},
               {{"AT+CPMS=\"ME\",\"SM\",\"ME\"", okay("+CPMS: 0,100,0,50,0,100")},
                {"AT+CMGW=18", PROMPT},
                {HELLO_OTHER, written(1)},
                {"AT+CMGR=1", cms(321)},
                {"AT+CMGS=18", PROMPT},
                {HELLO_SELF, sent(1)},
                {"AT+CMGR=1", READ_UNREAD},
                {"AT+CPMS?", okay("+CPMS: \"ME\",1,100,\"SM\",1,50,\"ME\",1,100")}}},
        Script{"AStoredMessageIsSentAndMarked",
               {},
               {{"AT+CMGW=18", PROMPT},
                {HELLO_SELF, written(1)},
                {"AT+CMSS=1", okay("+CMSS: 1")},
                {"AT+CMGR=1", okay("+CMGR: 3,,18\r\n" + submit(OWN, HELLO))},
                {"AT+CMGR=2", READ_UNREAD}}},
        Script{"AStoredMessageIsSentToAnotherNumber",
               {},
               {{"AT+CMGW=18", PROMPT},
                {HELLO_OTHER, written(1)},
                {"AT+CMSS=1,\"+15550001000\"", okay("+CMSS: 1")},
                {"AT+CMGR=2", READ_UNREAD},
                {"AT+CMSS=1,\"15550001000\",145", okay("+CMSS: 2")},
                {"AT+CMGR=3", READ_UNREAD},
                {"AT+CMSS=1,\"x\"", cms(304)},
                {"AT+CMSS=1", okay("+CMSS: 3")},
                {"AT+CMGR=4", cms(321)}}},
        Script{
            "AReceivedMessageIsNotSent",
            {},
            {{"AT+CMGW=24,1", PROMPT}, {DELIVERED + "\x1A", written(1)}, {"AT+CMSS=1", cms(304)}}}),
    nameOf<Script>);

const std::string CLASS_0 = "1005E8329BFD06"; // as HELLO, with a message class
const std::string CLASS_2 = "1205E8329BFD06";
const std::string CLASS_3 = "F305E8329BFD06";
const std::string WAITING = "D005E8329BFD06"; // a message-waiting indication that is stored

std::string self(const std::string &body) { return submit(OWN, body) + "\x1A"; }
std::string cmt(const std::string &body) { return "\r\n+CMT: ,24\r\n" + deliver(body) + "\r\n"; }
std::string report(int reference, const std::string &recipient) {
    return CENTRE + "060" + std::to_string(reference) + recipient + TIME + TIME + "00";
}

INSTANTIATE_TEST_SUITE_P(
    Receiving, Scripts,
    ::testing::Values(
        Script{
            "SilentModeStoresWithoutAWord",
            {                                                         },
            { {"AT+CNMI=2,0,0,0,0", OK},{"AT+CMGS=18", PROMPT},
              {self(HELLO), sent(1)},
              {"AT+CMGS=18", PROMPT},
              {self(CLASS_0), sent(2)},
              {"AT+CMGR=1", READ_UNREAD},
              {"AT+CMGR=2", okay("+CMGR: 0,,24\r\n" + deliver(CLASS_0))}}
},
        Script{"IndicationsNameTheReceiveStorage",
               {},
               {{"AT+CNMI=2,1", OK},
                {"AT+CPMS=\"ME\",\"ME\",\"ME\"", okay("+CPMS: 0,100,0,100,0,100")},
                {"AT+CMGS=18", PROMPT},
                {self(HELLO), sent(1) + "\r\n+CMTI: \"ME\",1\r\n"},
                {"AT+CMGS=18", PROMPT},
                {self(HELLO), sent(2) + "\r\n+CMTI: \"ME\",2\r\n"}}},
        Script{"ClassZeroIsHandedOver",
               {},
               {{"AT+CNMI=2,1", OK},
                {"AT+CMGS=18", PROMPT},
                {self(CLASS_0), sent(1) + cmt(CLASS_0)},
                {"AT+CMGL=4", OK}}},
        Script{"ClassTwoGoesToTheSim",
               {},
               {{"AT+CNMI=2,2", OK},
                {"AT+CPMS=\"ME\",\"ME\",\"ME\"", okay("+CPMS: 0,100,0,100,0,100")},
                {"AT+CMGS=18", PROMPT},
                {self(CLASS_2), sent(1) + "\r\n+CMTI: \"SM\",1\r\n"}}},
        Script{"RoutingHandsMessagesOver",
               {},
               {{"AT+CNMI=2,2", OK},
                {"AT+CMGS=18", PROMPT},
                {self(HELLO), sent(1) + cmt(HELLO)},
                {"AT+CMGS=18", PROMPT},
                {self(CLASS_3), sent(2) + cmt(CLASS_3)},
                {"AT+CMGS=18", PROMPT},
                {self(WAITING), sent(3) + "\r\n+CMTI: \"SM\",1\r\n"}}},
        Script{"RoutingOfClassThreeLeavesTheOthers",
               {},
               {{"AT+CNMI=2,3", OK},
                {"AT+CMGS=18", PROMPT},
                {self(HELLO), sent(1) + "\r\n+CMTI: \"SM\",1\r\n"},
                {"AT+CMGS=18", PROMPT},
                {self(CLASS_3), sent(2) + cmt(CLASS_3)},
                {"AT+CMGS=18", PROMPT},
                {self(CLASS_0), sent(3) + cmt(CLASS_0)}}},
        Script{"HeldIndicationsAreFlushed",
               {},
               {{"AT+CNMI=0,1,0,0,0", OK},
                {"AT+CMGS=18", PROMPT},
                {self(HELLO), sent(1)},
                {"AT+CNMI=2,1,0,0,0", OK + "\r\n+CMTI: \"SM\",1\r\n"},
                {"AT+CNMI=2,1,0,0,0", OK}}},
        Script{"HeldIndicationsAreForgottenWhenAsked",
               {},
               {{"AT+CNMI=0,1,0,0,0", OK},
                {"AT+CMGS=18", PROMPT},
                {self(HELLO), sent(1)},
                {"AT+CNMI=2,1,0,0,1", OK},
                {"AT+CNMI=2,1,0,0,0", OK}}},
        Script{"AMessageWaitsForRoom",
               {"--sm-size", "1"},
               {{"AT+CNMI=2,1", OK},
                {"AT+CMGS=18", PROMPT},
                {self(HELLO), sent(1) + "\r\n+CMTI: \"SM\",1\r\n"},
                {"AT+CMGS=15", PROMPT},
                {self("0402ABCD"), sent(2)},
                {"AT+CMGS=18", PROMPT},
                {self(HELLO), sent(3)},
                {"AT+CMGD=1", OK + "\r\n+CMTI: \"SM\",1\r\n"},
                {"AT+CMGR=1", okay("+CMGR: 0,,21\r\n" + deliver("0402ABCD"))},
                {"AT+CPMS=,,\"ME\"", okay("+CPMS: 1,1,1,1,1,100") + "\r\n+CMTI: \"ME\",1\r\n"},
                {"AT+CPMS=\"ME\"", okay("+CPMS: 1,100,1,1,1,100")},
                {"AT+CMGR=1", READ_UNREAD}}},
        Script{"RoutingFreesWhatWaits",
               {"--sm-size", "0"},
               {{"AT+CMGS=18", PROMPT}, {self(HELLO), sent(1)}, {"AT+CNMI=2,2", OK + cmt(HELLO)}}},
        Script{
            "AStatusReportIsHandedOver",
            {},
            {{"AT+CNMI=2,1,0,1,0", OK},
             {"AT+CMGS=18", PROMPT},
             {submit(OTHER, HELLO, "21") + "\x1A",
              sent(1) + "\r\n+CDS: 25\r\n" + report(1, OTHER) + "\r\n"},
             {"AT+CMGS=18", PROMPT},
             {submit(OWN, HELLO, "21") + "\x1A",
              sent(2) + "\r\n+CMTI: \"SM\",1\r\n" + "\r\n+CDS: 25\r\n" + report(2, OWN) + "\r\n"}}},
        Script{"AStatusReportIsStored",
               {},
               {{"AT+CNMI=2,1,0,2,0", OK},
                {"AT+CMGS=18", PROMPT},
                {submit(OTHER, HELLO, "21") + "\x1A", sent(1) + "\r\n+CDSI: \"SM\",1\r\n"},
                {"AT+CMGR=1", okay("+CMGR: 0,,25\r\n" + report(1, OTHER))}}},
        Script{"AStatusReportIsDroppedWhenNobodyWantsIt",
               {},
               {{"AT+CNMI=2,1,0,0,0", OK},
                {"AT+CMGS=18", PROMPT},
                {submit(OTHER, HELLO, "21") + "\x1A", sent(1)},
                {"AT+CNMI=2,1,0,1,0", OK}}},
        Script{"AReportWaitsForItsMessage",
               {"--sm-size", "0"},
               {{"AT+CNMI=2,1,0,1,0", OK},
                {"AT+CMGS=18", PROMPT},
                {submit(OWN, HELLO, "21") + "\x1A", sent(1)},
                {"AT+CPMS=,,\"ME\"", okay("+CPMS: 0,0,0,0,1,100") + "\r\n+CMTI: \"ME\",1\r\n" +
                                         "\r\n+CDS: 25\r\n" + report(1, OWN) + "\r\n"}}}),
    nameOf<Script>);

INSTANTIATE_TEST_SUITE_P(
    Faults, Scripts,
    ::testing::Values(
        Script{
            "ErrorRefusesTheCommand",
            {           "--fault",                "+CMGF=1=error"},
            { {"AT+CMGF=1", ERROR}, {"AT+CMGF?", okay("+CMGF: 0")},   {"AT+CMGF=0", OK}}
},
        Script{"CmsRefusesTheCommand", {"--fault", "+CPMS=cms=500"}, {{"AT+CPMS?", cms(500)}}},
        Script{"CmeFollowsTheErrorReports",
               {"--fault", "+CSQ=cme=10"},
               {{"AT+CSQ", ERROR},
                {"AT+CMEE=1;+CSQ", "\r\n+CME ERROR: 10\r\n"},
                {"AT+CMEE=2;+CSQ", "\r\n+CME ERROR: SIM not inserted\r\n"}}},
        Script{"ACountLimitsTheTimes",
               {"--fault", "+CSQ=error:2"},
               {{"AT+CSQ", ERROR}, {"AT+CSQ", ERROR}, {"AT+CSQ", okay("+CSQ: 21,99")}}},
        Script{"ARangeChoosesTheTimes",
               {"--fault", "+CSQ=error:2-3"},
               {{"AT+CSQ", okay("+CSQ: 21,99")},
                {"AT+CSQ", ERROR},
                {"AT+CSQ", ERROR},
                {"AT+CSQ", okay("+CSQ: 21,99")}}},
        Script{"AnOpenRangeGoesOn",
               {"--fault", "+CSQ=error:2-"},
               {{"AT+CSQ", okay("+CSQ: 21,99")}, {"AT+CSQ", ERROR}, {"AT+CSQ", ERROR}}},
        Script{"TheFirstFaultOfSeveralActsAndAllCount",
               {"--fault", "+CSQ=cms=1:1", "--fault", "*=cms=2:2-3"},
               {{"AT+CSQ", cms(1)}, {"AT+CSQ", cms(2)}, {"AT", cms(2)}, {"AT", OK}}},
        Script{"AFaultHitsOneCommandOfALine",
               {"--fault", "AT+CMGF=error"},
               {{"AT+CSQ;+CMGF=0;+CSQ", lines({"+CSQ: 21,99", "ERROR"})}}},
        Script{"AStarStandsForAnything",
               {"--fault", "+cpms=*\"me\"=error"},
               {{"AT+CPMS=\"SM\"", okay("+CPMS: 0,50,0,50,0,50")},
                {"AT+CPMS = , \"ME\"", ERROR},
                {"AT+CPMS=\"ME\"", ERROR}}},
        Script{"AnUnsolicitedLineStandsBeforeTheResult",
               {"--fault", "+CSQ=unsolicited=RING"},
               {{"AT+CSQ", lines({"+CSQ: 21,99", "RING", "OK"})}}},
        Script{"AnUnsolicitedTextMayHaveLines",
               {"--fault", "+CSQ=unsolicited=+CDS: 2\\n0006=error"},
               {{"AT+CSQ", lines({"+CSQ: 21,99", "+CDS: 2\r\n0006=error", "OK"})}}},
        Script{"AnUnsolicitedTextMayHaveAColon",
               {"--fault", "+CSQ=unsolicited=+CREG: 1:1"},
               {{"AT+CSQ", lines({"+CSQ: 21,99", "+CREG: 1", "OK"})},
                {"AT+CSQ", okay("+CSQ: 21,99")}}},
        Script{"ARefusalOfASentMessageComesBehindTheData",
               {"--fault", "+CMGS=cms=38:1"},
               {{"AT+CMGS=18", PROMPT},
                {HELLO_SELF, cms(38)},
                {"AT+CMGL=4", OK},
                {"AT+CMGS=18", PROMPT},
                {HELLO_SELF, sent(1)}}},
        Script{"HalfAReplyIsCutInTheMiddle",
               {"--fault", "+CSQ=half:1"},
               {{"AT+CSQ", "\r\n+CSQ: 21,"}, {"AT+CSQ", okay("+CSQ: 21,99")}}},
        Script{"FaultsAreAddedByCommand",
               {},
               {{"AT^FAULT=\"+CSQ=error:1\"", OK},
                {"AT^FAULT?", okay("^FAULT: \"+CSQ=error:1\",0")},
                {"AT+CSQ", ERROR},
                {"AT+CSQ", okay("+CSQ: 21,99")},
                {"AT^FAULT?", okay("^FAULT: \"+CSQ=error:1\",2")},
                {"AT^FAULT=\"+CSQ=unsolicited=+CMTI: \\22SM\\22,5\"", OK},
                {"AT+CSQ", lines({"+CSQ: 21,99", "+CMTI: \"SM\",5", "OK"})},
                {"AT^FAULT", OK},
                {"AT^FAULT?", OK},
                {"AT+CSQ", okay("+CSQ: 21,99")}}},
        Script{"NoFaultStopsTheFaultCommand",
               {"--fault", "*=error"},
               {{"AT", ERROR}, {"AT^FAULT", OK}, {"AT", OK}}},
        Script{"BadFaultsAreRefusedByCommand",
               {},
               {{"AT^FAULT=\"+CSQ\"", ERROR},
                {"AT^FAULT=\"+CSQ=explode\"", ERROR},
                {"AT^FAULT=\"+CSQ=cms\"", ERROR},
                {"AT^FAULT=\"+CSQ=cms=x\"", ERROR},
                {"AT^FAULT=\"+CSQ=error=1\"", ERROR},
                {"AT^FAULT=\"+CSQ=error:0\"", ERROR},
                {"AT^FAULT=\"+CSQ=error:3-2\"", ERROR},
                {"AT^FAULT=5", ERROR},
                {"AT+CSQ", okay("+CSQ: 21,99")}}}),
    nameOf<Script>);

// ---- the line ----

TEST(Line, EchoesUntilToldNotTo) {
    Modem modem;
    EXPECT_EQ(modem.ask("at+csq"), "at+csq\r\r\n+CSQ: 21,99\r\n\r\nOK\r\n");
    EXPECT_EQ(modem.ask("ATE0"), "ATE0\r\r\nOK\r\n");
    EXPECT_EQ(modem.ask("AT"), "\r\nOK\r\n");
    EXPECT_EQ(modem.ask("ATE1"), "\r\nOK\r\n");
    EXPECT_EQ(modem.ask("AT+CMGS=18"), "AT+CMGS=18\r\r\n> ");
    EXPECT_EQ(modem.ask(HELLO_OTHER), HELLO_OTHER + sent(1));
}

TEST(Line, EchoesCharactersAsTheyCome) {
    Modem modem;
    for (const std::string c : {"A", "T", "+", "C"}) {
        modem.write(c);
        EXPECT_EQ(modem.readTo(c), c);
    }
}

TEST(Line, CommandsInOneWriteAreAnsweredInOrder) {
    Quiet modem;
    std::string commands;
    std::string replies;
    for (int i = 0; i < 200; i++) {
        commands += i % 2 == 0 ? "AT+CSQ\r" : "AT+CMGR=1\r";
        replies += i % 2 == 0 ? okay("+CSQ: 21,99") : cms(321);
    }
    modem.write(commands);
    EXPECT_EQ(modem.readUntil([&](const auto &text) { return text.size() >= replies.size(); }),
              replies);
}

TEST(Line, ACommandCostsNoWaiting) {
    Quiet modem;
    constexpr int COMMANDS = 500;
    const auto begin = steady_clock::now();
    for (int i = 0; i < COMMANDS; i++) { ASSERT_EQ(modem.ask("AT"), OK); }
    const auto spent = steady_clock::now() - begin;
    EXPECT_LT(spent / COMMANDS, 5ms); // a poll interval or a sleep would show
}

TEST(Line, LatencyGoesBeforeReplyAndPrompt) {
    Quiet modem({"--latency", "50"});
    const auto begin = steady_clock::now();
    EXPECT_EQ(modem.ask("AT+CMGS=18"), PROMPT);
    EXPECT_GE(steady_clock::now() - begin, 50ms);
    EXPECT_EQ(modem.ask(HELLO_OTHER), sent(1));
    EXPECT_GE(steady_clock::now() - begin, 100ms);
}

TEST(Line, CharactersDuringAReplyWaitForItsEnd) {
    Quiet modem({"--latency", "20"});
    modem.write("AT+CSQ\rAT+CMGF?\r");
    const std::string expected = okay("+CSQ: 21,99") + okay("+CMGF: 0");
    EXPECT_EQ(modem.readTo(expected), expected);
}

// ---- messages ----

// TPDUs of the user data that a listing holds, in order of index.
std::vector<std::string> userDataOf(const std::string &listing, std::size_t behind) {
    std::vector<std::string> found;
    for (std::size_t at = listing.find("+CMGL: "); at != std::string::npos;
         at = listing.find("+CMGL: ", at + 1)) {
        const std::size_t pdu = listing.find("\r\n", at) + 2;
        found.push_back(listing.substr(pdu + behind, listing.find("\r\n", pdu) - pdu - behind));
    }
    return found;
}

std::string hex(unsigned value) {
    static constexpr std::string_view DIGITS = "0123456789ABCDEF";
    return {DIGITS[value >> 4 & 0xF], DIGITS[value & 0xF]};
}

// 140 octets of user data with a concatenation header, every octet value among them.
std::string segment(unsigned dcs, unsigned length, unsigned number, unsigned total) {
    std::string body = hex(dcs) + hex(length) + "050003A5" + hex(total) + hex(number);
    for (unsigned i = 6; i < 140; i++) { body += hex((number * 134 + i * 7) & 0xFF); }
    return body;
}

struct Coding {
    const char *name;
    unsigned dcs, length; // TP-DCS, TP-UDL
};

class LongMessages : public ::testing::TestWithParam<Coding> {};

TEST_P(LongMessages, ComeBackOctetByOctet) {
    const auto [name, dcs, length] = GetParam();
    constexpr unsigned TOTAL = 60;
    Quiet modem({"--sm-size", "60"});
    modem.ask("AT+CNMI=2,1,0,0,0");
    std::vector<std::string> sentBodies;
    for (unsigned number = 1; number <= TOTAL; number++) {
        sentBodies.push_back(segment(dcs, length, number, TOTAL));
        const std::string reply = modem.askWithPdu("AT+CMGS", submit(OWN, sentBodies.back(), "41"));
        ASSERT_EQ(reply, sent(static_cast<int>(number)));
        const std::string indication = "\r\n+CMTI: \"SM\"," + std::to_string(number) + "\r\n";
        ASSERT_EQ(modem.readTo(indication), indication);
        sentBodies.back().erase(0, 2); // the coding stands before the time stamp then
    }
    const std::size_t behind = CENTRE.size() + 2 + OWN.size() + 4 + 14;
    EXPECT_EQ(userDataOf(modem.ask("AT+CMGL=4"), behind), sentBodies);
}

INSTANTIATE_TEST_SUITE_P(Messages, LongMessages,
                         ::testing::Values(Coding{"SevenBit", 0x00, 160},
                                           Coding{"EightBit", 0x04, 140},
                                           Coding{"Ucs2", 0x08, 140}),
                         nameOf<Coding>);

TEST(Messages, TheReferenceWrapsAfter255) {
    Quiet modem;
    for (int i = 1; i <= 255; i++) {
        ASSERT_EQ(modem.askWithPdu("AT+CMGS", submit(OTHER, HELLO)), sent(i));
    }
    EXPECT_EQ(modem.askWithPdu("AT+CMGS", submit(OTHER, HELLO)), sent(0));
}

// TP-SCTS as seconds of local time since the epoch; its zone octet is checked by the caller.
std::time_t localSeconds(const std::string &stamp) {
    const auto pair = [&](std::size_t i) {
        return (stamp[i * 2 + 1] - '0') * 10 + (stamp[i * 2] - '0');
    };
    std::tm time{};
    time.tm_year = pair(0) + 100;
    time.tm_mon = pair(1) - 1;
    time.tm_mday = pair(2);
    time.tm_hour = pair(3);
    time.tm_min = pair(4);
    time.tm_sec = pair(5);
    return ::timegm(&time);
}

struct Zone {
    const char *name, *tz, *octet;
    long seconds;
};

class Timestamps : public ::testing::TestWithParam<Zone> {};

TEST_P(Timestamps, AreLocalTimeWithItsZone) {
    Quiet modem({}, GetParam().tz);
    const std::time_t before = std::time(nullptr);
    ASSERT_EQ(modem.askWithPdu("AT+CMGS", submit(OWN, HELLO)), sent(1));
    const std::time_t after = std::time(nullptr);
    const std::string reply = modem.ask("AT+CMGR=1");
    const std::size_t at = reply.find(OWN + "0000");
    ASSERT_NE(at, std::string::npos) << reply;
    const std::string stamp = reply.substr(at + OWN.size() + 4, 14);
    EXPECT_GE(localSeconds(stamp) - GetParam().seconds, before) << stamp;
    EXPECT_LE(localSeconds(stamp) - GetParam().seconds, after) << stamp;
    EXPECT_EQ(stamp.substr(12), GetParam().octet);
}

INSTANTIATE_TEST_SUITE_P(Messages, Timestamps,
                         ::testing::Values(Zone{"AtGreenwich", "UTC0", "00", 0},
                                           Zone{"East", "XXX-5:45", "32", 20700},  // 23 quarters
                                           Zone{"West", "XXX3:30", "49", -12600}), // -14 quarters
                         nameOf<Zone>);

TEST(Messages, UnsolicitedLinesNeverStandInAPromptOrReply) {
    Quiet modem({"--sm-size", "1", "--latency", "5"});
    modem.ask("AT+CNMI=2,1,0,0,0");
    modem.askWithPdu("AT+CMGS", submit(OWN, HELLO));
    modem.readTo("\r\n+CMTI: \"SM\",1\r\n");
    modem.askWithPdu("AT+CMGS", submit(OWN, HELLO)); // waits for room
    modem.write("AT+CMGD=1;+CSQ;+CMGS=18\r");
    EXPECT_EQ(modem.readReply(), PROMPT);
    modem.write(HELLO_OTHER);
    const std::string expected = lines({"+CSQ: 21,99", "+CMGS: 3", "OK", "+CMTI: \"SM\",1"});
    EXPECT_EQ(modem.readTo(expected), expected);
}

// ---- faults that leave no reply ----

TEST(Fault, SilenceLosesTheCommandAlone) {
    Quiet modem({"--fault", "+CMGF=1=silence"});
    modem.write("AT+CSQ;+CMGF=1\rAT+CMGF?\r");
    EXPECT_EQ(modem.readReply(), okay("+CMGF: 0"));
}

TEST(Fault, SilenceBehindThePdu) {
    Quiet modem({"--fault", "+CMGS=silence"});
    EXPECT_EQ(modem.ask("AT+CMGS=18"), PROMPT);
    modem.write(HELLO_SELF + "AT+CMGL=4\r");
    EXPECT_EQ(modem.readReply(), OK);
}

TEST(Fault, NoPromptLeavesCommandsWorking) {
    Quiet modem({"--fault", "+CMGS=no-prompt:1"});
    modem.write("AT+CMGS=18\r\x1B"
                "AT+CSQ\r");
    EXPECT_EQ(modem.readReply(), okay("+CSQ: 21,99"));
    EXPECT_EQ(modem.ask("AT+CMGS=18"), PROMPT);
}

TEST(Fault, GarbageHasNoResult) {
    Quiet modem({"--fault", "+CSQ=garbage"});
    modem.write("AT+CSQ\rAT\r");
    const std::string all = modem.readReply();
    const std::string noise = all.substr(0, all.size() - OK.size());
    EXPECT_EQ(noise.size(), okay("+CSQ: 21,99").size());
    EXPECT_EQ(noise.find("OK"), std::string::npos);
    EXPECT_EQ(noise.find('\r'), std::string::npos);
    EXPECT_TRUE(std::any_of(noise.begin(), noise.end(), [](char c) { return c < 0; }));
}

TEST(Fault, DelayMakesTheReplyLateAndHoldsTheNext) {
    Quiet modem({"--fault", "+CSQ=delay=80:1"});
    const auto begin = steady_clock::now();
    modem.write("AT+CSQ\rAT\r");
    EXPECT_EQ(modem.readTo(okay("+CSQ: 21,99") + OK), okay("+CSQ: 21,99") + OK);
    EXPECT_GE(steady_clock::now() - begin, 80ms);
}

TEST(Fault, ADelayedReplyOfASentMessageHasItsPromptAtOnce) {
    Quiet modem({"--fault", "+CMGS=delay=300"});
    const auto begin = steady_clock::now();
    EXPECT_EQ(modem.ask("AT+CMGS=18"), PROMPT);
    EXPECT_LT(steady_clock::now() - begin, 300ms);
    EXPECT_EQ(modem.ask(HELLO_OTHER), sent(1));
    EXPECT_GE(steady_clock::now() - begin, 300ms);
}

// Waits until `path` is a link to another terminal than `before`.
bool comesBack(const fs::path &path, const fs::path &before) {
    const auto until = steady_clock::now() + SOON;
    while (steady_clock::now() < until) {
        std::error_code error;
        const fs::path now = fs::read_symlink(path, error);
        if (!error && (now != before || before.empty())) { return true; }
        ::usleep(500);
    }
    return false;
}

bool isHungUp(int fd) {
    pollfd waiting{fd, POLLIN, 0};
    return ::poll(&waiting, 1, static_cast<int>(SOON.count())) == 1 &&
           (waiting.revents & POLLHUP) != 0;
}

TEST(Fault, DropHangsUpAndComesBackWithItsMessages) {
    Quiet modem({"--fault", "+CSQ=drop=60:1"});
    modem.askWithPdu("AT+CMGS", submit(OWN, HELLO));
    modem.ask("AT+CNMI=2,1,0,0,0");
    const auto begin = steady_clock::now();
    modem.write("AT+CSQ\r");
    EXPECT_TRUE(isHungUp(modem.fd()));
    EXPECT_FALSE(fs::exists(fs::symlink_status(modem.link())));
    ASSERT_TRUE(comesBack(modem.link(), ""));
    EXPECT_GE(steady_clock::now() - begin, 60ms);
    modem.close();
    modem.open();
    EXPECT_EQ(modem.ask("AT"), "AT\r\r\nOK\r\n"); // settings are back to the profile
    modem.ask("ATE0");
    EXPECT_EQ(modem.ask("AT+CNMI?"), okay("+CNMI: 2,0,0,0,0"));
    EXPECT_EQ(modem.ask("AT+CPMS?"), okay("+CPMS: \"SM\",1,50,\"SM\",1,50,\"SM\",1,50"));
    EXPECT_EQ(modem.ask("AT+CSQ"), okay("+CSQ: 21,99"));
}

TEST(Fault, DropBehindThePduSendsNothing) {
    Quiet modem({"--fault", "+CMGS=drop"});
    EXPECT_EQ(modem.ask("AT+CMGS=18"), PROMPT);
    modem.write(HELLO_SELF + "AT\r");
    EXPECT_TRUE(isHungUp(modem.fd()));
    modem.close();
    ASSERT_TRUE(comesBack(modem.link(), ""));
    modem.open();
    modem.ask("ATE0");
    EXPECT_EQ(modem.ask("AT+CMGL=4"), OK);
}

TEST(Fault, DropIsSurvivedManyTimes) {
    Modem modem({"--fault", "+CSQ=drop"});
    for (int i = 0; i < 20; i++) {
        modem.write("AT+CSQ\rAT\rAT\r");
        ASSERT_TRUE(isHungUp(modem.fd()));
        modem.close();
        ASSERT_TRUE(comesBack(modem.link(), ""));
        modem.open();
    }
    EXPECT_EQ(modem.ask("AT"), "AT\r\r\nOK\r\n");
}

// ---- the process and its link ----

TEST(Program, TheTerminalCanBeClosedAndReopened) {
    Quiet modem;
    for (int i = 0; i < 10; i++) {
        modem.close();
        modem.open();
        ASSERT_EQ(modem.ask("AT"), OK);
    }
}

TEST(Program, TheLinkIsATerminal) {
    Modem modem;
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(modem.link())));
    EXPECT_TRUE(::isatty(modem.fd()));
}

TEST(Program, EverySignalToEndRemovesTheLink) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        Modem modem;
        const Outcome outcome = modem.process().end(signal);
        EXPECT_EQ(outcome.status, 0) << signal;
        EXPECT_EQ(outcome.output, "");
        EXPECT_FALSE(fs::exists(fs::symlink_status(modem.link()))) << signal;
    }
}

TEST(Program, ALinkToNothingIsReplaced) {
    Directory directory;
    const fs::path link = directory / "modem";
    fs::create_symlink(directory / "gone", link);
    Process process({"--link", link.string()});
    EXPECT_EQ(process.readLine(), "ready: " + link.string() + "\n");
    EXPECT_TRUE(fs::read_symlink(link).native().starts_with("/dev/pts/"));
}

TEST(Program, ALinkThatAKilledProcessLeftIsReplaced) {
    Directory directory;
    const fs::path link = directory / "modem";
    {
        Process killed({"--link", link.string()});
        killed.readLine();
        killed.end(SIGKILL);
    }
    ASSERT_TRUE(fs::is_symlink(fs::symlink_status(link)));
    Process process({"--link", link.string()});
    EXPECT_EQ(process.readLine(), "ready: " + link.string() + "\n");
}

TEST(Program, ALinkThatPointsElsewhereByNowIsLeft) {
    Directory directory;
    const fs::path link = directory / "modem";
    Process first({"--link", link.string()});
    first.readLine();
    Process second({"--link", link.string()});
    second.readLine();
    EXPECT_EQ(first.end(SIGTERM).status, 0);
    EXPECT_TRUE(fs::exists(link));
    EXPECT_EQ(second.end(SIGTERM).status, 0);
    EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
}

struct Refusal {
    const char *name;
    std::vector<std::string> options;
    std::vector<std::string> words; // that the message must have
};

class Refusals : public ::testing::TestWithParam<Refusal> {};

TEST_P(Refusals, SayWhatIsWrong) {
    Directory directory;
    std::ofstream(directory / "file") << "text";
    fs::create_symlink("file", directory / "link-to-file");
    std::vector<std::string> options;
    for (std::string option : GetParam().options) {
        if (option.starts_with("DIR/")) {
            option = (directory / option.substr(4).c_str()).string();
        }
        options.push_back(option);
    }
    Process process(options);
    const Outcome outcome = process.end();
    EXPECT_GT(outcome.status, 0) << outcome.output;
    for (const std::string &word : GetParam().words) {
        EXPECT_NE(outcome.output.find(word), std::string::npos) << outcome.output;
    }
    EXPECT_EQ(outcome.output.find("ready:"), std::string::npos);
    std::string text;
    std::getline(std::ifstream(directory / "file"), text);
    EXPECT_EQ(text, "text");
}

INSTANTIATE_TEST_SUITE_P(
    Program, Refusals,
    ::testing::Values(
        Refusal{
            "NoLink", {                   },
             {"--link is required"}
},
        Refusal{"AFileOfThatName", {"--link", "DIR/file"}, {"/file", "no link", "--link"}},
        Refusal{"ALinkToAFile", {"--link", "DIR/link-to-file"}, {"link-to-file", "no terminal"}},
        Refusal{"AMissingDirectory", {"--link", "DIR/none/modem"}, {"none/modem", "No such file"}},
        Refusal{"ANumberWithLetters",
                {"--link", "DIR/modem", "--number", "12a"},
                {"--number", "\"12a\" is no number", "digits"}},
        Refusal{"ANumberTooLong",
                {"--link", "DIR/modem", "--number", "123456789012345678901"},
                {"--number", "20 at most"}},
        Refusal{"AServiceCentreWithLetters", {"--link", "DIR/modem", "--smsc", "x"}, {"--smsc"}},
        Refusal{"ANegativeSize", {"--link", "DIR/modem", "--me-size", "-1"}, {"--me-size"}},
        Refusal{"ASizeTooLarge", {"--link", "DIR/modem", "--sm-size", "10001"}, {"--sm-size"}},
        Refusal{"AnUnknownFault",
                {"--link", "DIR/modem", "--fault", "+CSQ=explode"},
                {"+CSQ=explode", "PATTERN=ACTION[:COUNT]", "no-prompt"}},
        Refusal{"AnUnknownOption", {"--link", "DIR/modem", "--colour"}, {"--colour"}}),
    nameOf<Refusal>);

TEST(Program, VerboseTracesEachLineOnStandardError) {
    Modem modem({"--verbose"});
    modem.ask("AT+CSQ");
    const Outcome outcome = modem.process().end(SIGTERM);
    EXPECT_NE(outcome.output.find("< AT+CSQ"), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find("> \\r\\n+CSQ: 21,99\\r\\n"), std::string::npos);
}

TEST(Program, HelpShowsEveryOption) {
    Process process({"--help"});
    const Outcome outcome = process.end();
    EXPECT_EQ(outcome.status, 0);
    for (const char *const option : {"--link", "--number", "--smsc", "--me-size", "--sm-size",
                                     "--fault", "--latency", "--verbose", "--version"}) {
        EXPECT_NE(outcome.output.find(option), std::string::npos) << option;
    }
}

} // namespace

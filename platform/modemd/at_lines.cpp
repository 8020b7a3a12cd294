// The lines of a modem, told apart by tables. Never blocks, never fails: what is not known is text.
#include "platform/modemd/at_lines.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace smspb::modemd {
namespace {

constexpr std::string_view PROMPT = "> ";

// TS 27.005, 3.2.5 and TS 27.007, 9.1: with a code behind them.
constexpr std::array<std::string_view, 2> ERROR_PREFIXES = {"+CMS ERROR:", "+CME ERROR:"};

// V.250, 6.3: how a call that could not be made, or that ended, is told.
constexpr std::array<std::string_view, 4> CALL_FAILURES = {"NO CARRIER", "NO DIALTONE", "BUSY",
                                                           "NO ANSWER"};

// V.250, 6.3.1 and 6.3.5 to 6.3.7: the commands whose result is a call's.
constexpr std::array<std::string_view, 4> CALL_COMMANDS = {"ATD", "ATA", "ATO", "ATH"};

// TS 27.005, 3.5.1, 3.5.3 and 3.5.5.
constexpr std::array<std::string_view, 3> TEXT_COMMANDS = {"+CMGS", "+CMGW", "+CMGC"};

// Reports that are a whole line.
constexpr std::array<std::string_view, 3> REPORT_LINES = {"RING", "RING_BACK",
                                                          "DIAL CONNECT REQUEST"};

// Reports known by their beginning. A query (AT+CLIP?, AT+CLIP=?) is answered by the same
// beginning.
constexpr std::array<std::string_view, 21> REPORT_PREFIXES = {
    "+CMTI:",  "+CMT:",   "+CDSI:", "+CDS:",  "+CBMI:",   "+CBM:",  "+CUSD:",
    "+CLIP:",  "+CRING:", "+CCWA:", "+CSSI:", "+CSSU:",   "+CREG:", "+CGREG:",
    "+CEREG:", "+CGEV:",  "+CIEV:", "+DISC:", "+URCIND:", "+CTZV:", "+VOICEMAIL:",
};
constexpr std::string_view SIM_REMOVED = "Sim card removed";

// TS 27.007, 7.2, 10.1.20 and 10.1.22: a report is "<stat>[,...]", an answer "<n>,<stat>[,...]".
constexpr std::array<std::string_view, 3> REGISTRATIONS = {"+CREG:", "+CGREG:", "+CEREG:"};

// Reports that bring a message on the line behind them (TS 27.005, 3.4.1).
constexpr std::array<std::string_view, 3> MESSAGE_REPORTS = {"+CMT:", "+CDS:", "+CBM:"};
constexpr std::string_view STATUS_REPORT = "+CDS:";
constexpr std::string_view USSD_REPORT = "+CUSD:";

// TS 27.005, 3.4.1, text mode: "+CDS: <fo>,<mr>,<ra>,<tora>,<scts>,<dt>,<st>" is complete.
constexpr long TEXT_STATUS_REPORT_COMMAS = 4;

template <typename Table> bool startsWithOneOf(std::string_view line, const Table &table) {
    return std::any_of(table.begin(), table.end(),
                       [line](std::string_view prefix) { return line.starts_with(prefix); });
}

template <typename Table> bool isOneOf(std::string_view line, const Table &table) {
    return std::find(table.begin(), table.end(), line) != table.end();
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view withoutBlanks(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

bool isCallCommand(std::string_view command) {
    return startsWithOneOf(upperCase(command.substr(0, 3)), CALL_COMMANDS);
}

bool isConnect(std::string_view line) { return line == "CONNECT" || line.starts_with("CONNECT "); }

// What stands behind `name` in the command line, when it is one of its commands; the commands of a
// line follow "AT" or ';' (V.250, 5.2.1).
std::optional<std::string> behindName(std::string_view command, std::string_view name) {
    const std::string line = upperCase(command);
    const std::string wanted = upperCase(name);
    for (std::size_t at = line.find(wanted); at != std::string::npos;
         at = line.find(wanted, at + 1)) {
        const bool begins = at == 2 || (at > 0 && line[at - 1] == ';');
        const std::string_view rest =
            withoutBlanks(std::string_view(line).substr(at + wanted.size()));
        const bool ends = rest.empty() || std::isalnum(static_cast<unsigned char>(rest[0])) == 0;
        if (begins && ends) { return std::string(rest); }
    }
    return std::nullopt;
}

bool asksFor(std::string_view command, std::string_view name) {
    const std::optional<std::string> rest = behindName(command, name);
    return rest && (rest->starts_with("?") || rest->starts_with("=?"));
}

// "<n>,<stat>" or, for the test command, "(<list>)": the second field of a report is a location
// code of four hexadecimal digits, with or without quotes.
bool hasAnswerForm(std::string_view registration) {
    const std::string_view fields = withoutBlanks(registration.substr(registration.find(':') + 1));
    if (fields.starts_with('(')) { return true; }
    const std::size_t comma = fields.find(',');
    if (comma == std::string_view::npos) { return false; }
    const std::string_view second = withoutBlanks(fields.substr(comma + 1));
    const std::size_t digitCount = std::min(second.find(','), second.size());
    return digitCount >= 1 && digitCount <= 2 &&
           std::all_of(second.begin(), second.begin() + static_cast<std::ptrdiff_t>(digitCount),
                       isDigit);
}

bool isPrefixedReport(std::string_view line, std::string_view command) {
    const std::string_view name = line.substr(0, line.find(':'));
    if (!asksFor(command, name)) { return true; }
    return startsWithOneOf(line, REGISTRATIONS) && !hasAnswerForm(line);
}

// "^RSSI:15" and the like. A vendor's command is answered under its own name, with or without a
// question mark.
bool isVendorReport(std::string_view line, std::string_view command) {
    return !behindName(command, line.substr(0, line.find_first_of(": ")));
}

// Whether the quoted text of a "+CUSD: <m>,"<text>",<dcs>" has ended.
bool isUssdComplete(std::string_view report) {
    const std::string_view line = lineText(report);
    const std::size_t quote = line.find('"');
    if (quote == std::string_view::npos) { return true; }
    const std::size_t last = line.find_last_not_of("0123456789 ");
    if (last == std::string_view::npos || last == quote) { return false; }
    return line.back() == '"' || (line[last] == ',' && line[last - 1] == '"');
}

bool isHexText(std::string_view line) {
    return !line.empty() && std::all_of(line.begin(), line.end(),
                                        [](unsigned char c) { return std::isxdigit(c) != 0; });
}

} // namespace

std::string upperCase(std::string_view text) {
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return upper;
}

std::string_view lineText(std::string_view raw) {
    const std::size_t first = raw.find_first_not_of("\r\n");
    if (first == std::string_view::npos) { return {}; }
    return raw.substr(first, raw.find_last_not_of("\r\n") - first + 1);
}

bool isErrorResult(std::string_view line, std::string_view command) {
    return line == "ERROR" || startsWithOneOf(line, ERROR_PREFIXES) ||
           (isOneOf(line, CALL_FAILURES) && isCallCommand(command));
}

bool isFinalResult(std::string_view line, std::string_view command) {
    return line == "OK" || isErrorResult(line, command) ||
           (isConnect(line) && isCallCommand(command));
}

bool endsInOk(std::string_view reply) {
    const std::size_t end = reply.find_last_not_of("\r\n");
    if (end == std::string_view::npos) { return false; }
    const std::string_view text = reply.substr(0, end + 1);
    return text.substr(text.find_last_of("\r\n") + 1) == "OK";
}

bool matchesMarker(std::string_view line, std::string_view marker) {
    return marker == "OK" || marker == "ERROR" ? line == marker : line.starts_with(marker);
}

bool isReport(std::string_view line, std::string_view command) {
    if (isOneOf(line, REPORT_LINES) || line.starts_with(SIM_REMOVED)) { return true; }
    if (isOneOf(line, CALL_FAILURES) || isConnect(line)) { return !isCallCommand(command); }
    if (line.starts_with('^')) { return isVendorReport(line, command); }
    return startsWithOneOf(line, REPORT_PREFIXES) && isPrefixedReport(line, command);
}

bool promptsForText(std::string_view command) {
    return std::any_of(TEXT_COMMANDS.begin(), TEXT_COMMANDS.end(), [command](auto name) {
        return behindName(command, name) && !asksFor(command, name);
    });
}

LineAssembler::Event LineAssembler::put(char octet) {
    if (octet == '\0') { return Event::NONE; }
    if (overlong_) {
        overlong_ = octet != '\n';
        return overlong_ ? Event::NONE : Event::OVERLONG;
    }
    line_ += octet;
    if (octet == '\n') { return Event::LINE; }
    if (isAtPrompt()) { return Event::PROMPT; }
    if (line_.size() > LINE_OCTETS_MAX) {
        line_.clear();
        overlong_ = true;
    }
    return Event::NONE;
}

bool LineAssembler::isAtPrompt() const { return line_ == PROMPT; }

std::string LineAssembler::take() {
    std::string line;
    line.swap(line_);
    return line;
}

std::optional<std::string> ReportAssembler::begin(std::string_view line) {
    gap_ = false;
    report_ = std::string(line) + "\r\n";
    const bool isStatusText =
        line.starts_with(STATUS_REPORT) &&
        std::count(line.begin(), line.end(), ',') >= TEXT_STATUS_REPORT_COMMAS;
    const bool bringsMessage = startsWithOneOf(line, MESSAGE_REPORTS) && !isStatusText;
    const bool isOpenUssd = line.starts_with(USSD_REPORT) && !isUssdComplete(line);
    if (bringsMessage || isOpenUssd) { return std::nullopt; }
    return abandon();
}

std::optional<std::string> ReportAssembler::proceed(std::string_view raw, bool *taken) {
    const std::string_view line = lineText(raw);
    const bool isUssd = report_.starts_with(USSD_REPORT);
    *taken = !gap_ || (isUssd ? !isFinalResult(line, {}) : line.empty() || isHexText(line));
    if (!*taken) { return abandon(); }
    gap_ = line.empty();
    if (isUssd) {
        report_ += raw;
        if (!isUssdComplete(report_) && report_.size() <= LINE_OCTETS_MAX) { return std::nullopt; }
        return abandon();
    }
    if (gap_) { return std::nullopt; }
    (report_ += line) += "\r\n";
    return abandon();
}

std::string ReportAssembler::abandon() {
    std::string report;
    report.swap(report_);
    // A text's own line ends stay; the last one is ours, though the modem gave half of it.
    if (report.ends_with('\n') && !report.ends_with("\r\n")) {
        report.insert(report.size() - 1, 1, '\r');
    }
    return report;
}

ReplyCollector::Verdict ReplyCollector::put(std::string_view raw) {
    if (text_.empty()) { raw = behindEcho(raw); }
    const std::string_view line = lineText(raw);
    if (line.empty()) {
        if (blanks_.size() + raw.size() <= LINE_OCTETS_MAX) { blanks_ += raw; }
        return Verdict::TAKEN;
    }
    const bool isMarked =
        std::any_of(markers_.begin(), markers_.end(),
                    [line](const std::string &marker) { return matchesMarker(line, marker); });
    if (!isMarked && isReport(line, sent_)) {
        blanks_.clear();
        return Verdict::REPORT;
    }
    append(raw);
    settled_ = settled_ || isFinalResult(line, sent_);
    return isMarked || isErrorResult(line, sent_) ? Verdict::ENDED : Verdict::TAKEN;
}

// With echo on the modem gives back what was sent before it answers (V.250, 6.2.4).
std::string_view ReplyCollector::behindEcho(std::string_view raw) const {
    if (sent_.empty()) { return raw; }
    const std::string_view line = std::string_view(sent_).substr(0, sent_.size() - 1);
    if (line.empty() || !raw.starts_with(line)) { return raw; }
    raw.remove_prefix(line.size());
    if (raw.starts_with(sent_.back())) { raw.remove_prefix(1); }
    return raw;
}

void ReplyCollector::append(std::string_view raw) {
    if (text_.size() + blanks_.size() + raw.size() > REPLY_OCTETS_MAX) {
        spoilt_ = true;
        return;
    }
    text_ += blanks_;
    text_ += raw;
    blanks_.clear();
}

} // namespace smspb::modemd

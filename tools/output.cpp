#include "tools/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <fmt/format.h>

#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr std::size_t GAP = 2;                // between columns
constexpr std::size_t LAST_COLUMN_LEAST = 20; // on a terminal that is too narrow

std::size_t terminalColumns() {
    if (isatty(STDOUT_FILENO) == 0) { return 0; }
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) { return size.ws_col; }
    return 80;
}

void write(std::FILE *stream, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stream);
}

std::vector<std::size_t> columnWidths(const Table &table) {
    std::vector<std::size_t> widths(table.heads.size(), 0);
    const auto widen = [&widths](const std::vector<std::string> &cells) {
        for (std::size_t i = 0; i < cells.size(); i++) {
            widths[i] = std::max(widths[i], columnsOf(cells[i]));
        }
    };
    widen(table.heads);
    for (const auto &row : table.rows) { widen(row); }
    return widths;
}

// As units of JSON, RFC 8259, 7.
std::string escaped(char32_t character) {
    std::string text;
    for (const char16_t unit : toUnits(std::u32string(1, character))) {
        text += fmt::format("\\u{:04x}", static_cast<unsigned>(unit));
    }
    return text;
}

// One row, the last cell in as many lines as it needs.
std::string layOutRow(const std::vector<std::string> &cells, const std::vector<std::size_t> &widths,
                      std::size_t lastColumns) {
    std::string front;
    for (std::size_t i = 0; i + 1 < cells.size(); i++) {
        front += padded(cells[i], widths[i] + GAP);
    }
    const std::vector<std::string> lines =
        lastColumns == 0 ? std::vector{cells.back()} : wrapped(cells.back(), lastColumns);
    std::string text;
    for (const std::string &line : lines) {
        std::string whole = front + line;
        whole.erase(whole.find_last_not_of(' ') + 1);
        text += whole + "\n";
        front.assign(columnsOf(front), ' ');
    }
    return text;
}

} // namespace

std::string layOut(const Table &table, std::size_t columns) {
    Table safe = table;
    const LineEnds lineEnds = columns == 0 ? LineEnds::MARKED : LineEnds::KEPT;
    for (auto &row : safe.rows) {
        for (std::string &cell : row) {
            cell = printable(cell, &cell == &row.back() ? lineEnds : LineEnds::MARKED);
        }
    }
    const std::vector<std::size_t> widths = columnWidths(safe);
    std::size_t last = 0;
    if (columns != 0) {
        std::size_t front = 0;
        for (std::size_t i = 0; i + 1 < widths.size(); i++) { front += widths[i] + GAP; }
        last = std::max(columns > front ? columns - front : 0, LAST_COLUMN_LEAST);
    }
    std::string text = layOutRow(safe.heads, widths, 0);
    for (const auto &row : safe.rows) { text += layOutRow(row, widths, last); }
    return text;
}

std::string serialized(const Json &document, bool oneLine) {
    const std::string plain =
        document.dump(oneLine ? -1 : 2, ' ', false, Json::error_handler_t::replace);
    std::string text;
    // Line ends stand between the values, everything else that is dangerous within strings only,
    // where an escape means the same.
    for (const char32_t c : toCharacters(plain)) {
        text += c != '\n' && isDangerous(c) ? escaped(c) : toUtf8(std::u32string(1, c));
    }
    return text;
}

std::string Fields::layOut() const {
    std::size_t widest = 0;
    for (const Row &row : rows_) { widest = std::max(widest, columnsOf(row.name)); }
    std::string text;
    for (const Row &row : rows_) {
        const std::string value = printable(row.value, LineEnds::MARKED);
        const std::string name = row.name.empty() ? "" : row.name + ":";
        text += padded(name, widest + 1 + GAP) + value + "\n";
    }
    return text;
}

void Console::say(std::string_view text) const {
    if (!json_) { write(stdout, printable(text, LineEnds::KEPT) + "\n"); }
}

void Console::show(const Table &table) const {
    if (!json_) { write(stdout, cli::layOut(table, terminalColumns())); }
}

void Console::show(const Fields &fields) const {
    if (!json_) { write(stdout, fields.layOut()); }
}

void Console::document(const Json &document) const {
    if (json_) { write(stdout, serialized(document, oneLine_) + "\n"); }
}

void Console::note(std::string_view text) const {
    progress("");
    std::fflush(stdout);
    write(stderr, "smspb: " + printable(text, LineEnds::MARKED) + "\n");
}

void Console::progress(std::string_view text) const {
    if (text.empty() && !showsProgress_) { return; }
    if (isatty(STDERR_FILENO) == 0) { return; }
    showsProgress_ = !text.empty();
    // CR, then erase to the end of the line (ECMA-48, EL).
    write(stderr, "\r" + printable(text, LineEnds::MARKED) + "\x1B[K");
    std::fflush(stderr);
}

void Console::complain(const Failure &failure) const {
    // The modem's own error says more than the library's status for it.
    const bool hasStatus = failure.status && !failure.modem;
    const std::string code = hasStatus ? fmt::format(" (status {})", *failure.status) : "";
    note(failure.what() + code);
    if (failure.hint.empty()) { return; }
    write(stderr, "  next: " + printable(failure.hint, LineEnds::MARKED) + "\n");
}

void Console::fail(const Failure &failure) const {
    complain(failure);
    document({
        {"error", toJson(failure)}
    });
}

} // namespace smspb::cli

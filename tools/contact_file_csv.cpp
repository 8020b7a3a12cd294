// CSV, RFC 4180.
#include <algorithm>
#include <optional>

#include <fmt/format.h>

#include "tools/contact_file.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr std::string_view NAME_COLUMN = "name", NUMBER_COLUMN = "number";

struct Row {
    std::size_t line = 0;
    std::vector<std::string> fields;
    std::string problem;

    bool isBlank() const { return problem.empty() && fields.size() == 1 && fields[0].empty(); }
};

// Takes one row after the other.
class Rows {
public:
    Rows(std::string_view text, char separator) : text_(text), separator_(separator) {}

    std::optional<Row> next() {
        if (at_ >= text_.size()) { return std::nullopt; }
        const std::size_t start = at_;
        Row row{line_, {}, ""};
        do { row.fields.push_back(takeField(row)); } while (row.problem.empty() && takeSeparator());
        if (row.problem.empty()) { row.problem = utf8Problem(text_.substr(start, at_ - start)); }
        skipLine();
        return row;
    }

private:
    bool isAtLineEnd() const {
        return at_ >= text_.size() || text_[at_] == '\n' || text_.substr(at_, 2) == "\r\n";
    }

    bool takeSeparator() {
        if (at_ >= text_.size() || text_[at_] != separator_) { return false; }
        at_++;
        return true;
    }

    // To the next line; behind a problem there may be something left of this one.
    void skipLine() {
        at_ = std::min(text_.find('\n', at_), text_.size());
        if (at_ < text_.size()) { at_++; }
        line_++;
    }

    std::string takeField(Row &row) {
        if (at_ < text_.size() && text_[at_] == '"') { return takeQuoted(row); }
        const std::size_t start = at_;
        while (!isAtLineEnd() && text_[at_] != separator_) {
            if (text_[at_] == '"') {
                row.problem = "a quote stands within a field that does not begin with one";
                return "";
            }
            at_++;
        }
        return std::string(text_.substr(start, at_ - start));
    }

    // A quote within is written twice.
    std::string takeQuoted(Row &row) {
        std::string field;
        for (at_++; at_ < text_.size(); at_++) {
            if (text_[at_] == '"' && text_.substr(at_, 2) != "\"\"") {
                return endQuoted(row, field);
            }
            if (text_[at_] == '"') { at_++; }
            if (text_[at_] == '\n') { line_++; }
            field += text_[at_];
        }
        row.problem = "a field begins with a quote that is not closed";
        return "";
    }

    std::string endQuoted(Row &row, std::string &field) {
        at_++;
        if (!isAtLineEnd() && text_[at_] != separator_) {
            row.problem = "something stands between a field's closing quote and its end";
        }
        return std::move(field);
    }

    std::string_view text_;
    char separator_;
    std::size_t at_ = 0, line_ = 1;
};

// The first of the three that stands in the line.
char separatorOf(std::string_view text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    const std::size_t found = line.find_first_of(",;\t");
    return found == line.npos ? ',' : line[found];
}

std::optional<std::size_t> columnNamed(const std::vector<std::string> &heads,
                                       std::string_view name) {
    const auto head = std::find_if(heads.begin(), heads.end(), [name](std::string_view candidate) {
        while (candidate.starts_with(' ')) { candidate.remove_prefix(1); }
        while (candidate.ends_with(' ')) { candidate.remove_suffix(1); }
        return equalIgnoringCase(candidate, name);
    });
    if (head == heads.end()) { return std::nullopt; }
    return static_cast<std::size_t>(head - heads.begin());
}

std::string csvField(std::string_view field) {
    if (field.find_first_of(",;\t\"\r\n") == field.npos) { return std::string(field); }
    std::string text = "\"";
    for (const char c : field) {
        if (c == '"') { text += c; }
        text += c;
    }
    return text + "\"";
}

} // namespace

ContactFile parseCsv(std::string_view text) {
    text = withoutByteOrderMark(text);
    ContactFile file;
    Rows rows(text, separatorOf(text));
    const Row heads = rows.next().value_or(Row{1, {}, ""});
    const auto name = columnNamed(heads.fields, NAME_COLUMN),
               number = columnNamed(heads.fields, NUMBER_COLUMN);
    if (!heads.problem.empty() || !name || !number) {
        file.problems.push_back(
            {heads.line, heads.problem.empty()
                             ? "the first line does not name the columns name and number"
                             : heads.problem});
        return file;
    }
    while (auto row = rows.next()) {
        if (row->isBlank()) { continue; }
        if (row->problem.empty() && row->fields.size() != heads.fields.size()) {
            row->problem = fmt::format("it has {}, the first line {}",
                                       counted(row->fields.size(), "field"), heads.fields.size());
        }
        if (row->problem.empty()) {
            file.entries.push_back({row->line, row->fields[*name], row->fields[*number]});
        } else {
            file.problems.push_back({row->line, row->problem});
        }
    }
    return file;
}

std::string formatCsv(const std::vector<Contact> &contacts) {
    std::string text = fmt::format("{},{}\r\n", NAME_COLUMN, NUMBER_COLUMN);
    for (const Contact &contact : contacts) {
        text += csvField(contact.name) + "," + csvField(contact.number) + "\r\n";
    }
    return text;
}

} // namespace smspb::cli

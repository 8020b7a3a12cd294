#include "log_reader.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <ostream>

#include "private_log.h"

namespace support {
namespace {

bool isWord(std::string_view text) {
    return !text.empty() &&
           text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_"
                                  "0123456789") == std::string_view::npos;
}

bool isSource(std::string_view text) {
    const auto slash = text.find('/');
    const auto dot = text.rfind(".cpp");
    if (slash == std::string_view::npos || dot == std::string_view::npos || dot < slash ||
        dot + 4 != text.size()) {
        return false;
    }
    return isWord(text.substr(0, slash)) && isWord(text.substr(slash + 1, dot - slash - 1));
}

// "[source:function:line]" at the start of `text`, and how long it is.
struct Prefix {
    LogEntry entry;
    std::size_t length;
};

std::optional<Prefix> parsePrefix(std::string_view text) {
    const auto end = text.find(']');
    if (text.empty() || text[0] != '[' || end == std::string_view::npos) { return std::nullopt; }
    const auto fields = text.substr(1, end - 1);
    const auto first = fields.find(':');
    const auto last = fields.rfind(':');
    if (first == std::string_view::npos || first == last) { return std::nullopt; }
    const auto line = fields.substr(last + 1);
    Prefix prefix{
        {std::string(fields.substr(0, first)),
         std::string(fields.substr(first + 1, last - first - 1)), 0, ""},
        end + 1
    };
    if (!isSource(prefix.entry.source) || !isWord(prefix.entry.function) || line.empty() ||
        line.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    prefix.entry.line = std::atoi(std::string(line).c_str());
    return prefix;
}

} // namespace

void PrintTo(const LogEntry &entry, std::ostream *out) {
    *out << '[' << entry.source << ':' << entry.function << ':' << entry.line << ']'
         << entry.message;
}

std::string logFile(const char *name) {
    std::ifstream file(privatePath(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool logFileExists(const char *name) { return std::filesystem::exists(privatePath(name)); }

void writeLogFile(const char *name, const std::string &content) {
    std::ofstream(privatePath(name), std::ios::binary) << content;
}

std::vector<LogEntry> logEntries() {
    const std::string text = logFile(PREVIOUS_LOG) + logFile(CURRENT_LOG);
    std::vector<LogEntry> entries;
    for (std::size_t at = 0; at < text.size();) {
        if (auto prefix = parsePrefix(std::string_view(text).substr(at))) {
            entries.push_back(std::move(prefix->entry));
            at += prefix->length;
            continue;
        }
        if (entries.empty()) { entries.emplace_back(); } // a text that no entry began
        entries.back().message += text[at++];
    }
    return entries;
}

void clearLog() { removeLogs(); }

std::vector<std::string> logMessages() {
    std::vector<std::string> messages;
    for (const LogEntry &entry : logEntries()) { messages.push_back(entry.message); }
    return messages;
}

std::vector<std::string> logMessagesOf(std::string_view function) {
    std::vector<std::string> messages;
    for (const LogEntry &entry : logEntries()) {
        if (entry.function == function) { messages.push_back(entry.message); }
    }
    return messages;
}

std::vector<std::string> logMessagesIn(std::string_view source) {
    std::vector<std::string> messages;
    for (const LogEntry &entry : logEntries()) {
        if (entry.source == source) { messages.push_back(entry.message); }
    }
    return messages;
}

} // namespace support

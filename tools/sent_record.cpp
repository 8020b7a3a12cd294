#include "tools/sent_record.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <exception>

#include <fmt/format.h>

#include "platform/ipc/descriptor.h"
#include "platform/ipc/ipc_server.h"

namespace smspb::cli {

namespace {

constexpr const char *FILE_NAME = "sent-messages";
constexpr mode_t OWNER_ONLY = 0600;
constexpr std::size_t SENT_MAX = 256;
constexpr std::size_t FILE_OCTETS_MAX = 64 * 1024;
// Numbers are the same when this many of their last digits are.
constexpr std::size_t SIGNIFICANT_DIGITS = 9;

ipc::Descriptor openRecord(int flags, int lock) {
    const std::string path = (ipc::runtimeDirectory() / FILE_NAME).string();
    ipc::Descriptor file(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, OWNER_ONLY));
    if (file.isOpen()) { flock(file.get(), lock); }
    return file;
}

std::string contentOf(int file) {
    std::string content(FILE_OCTETS_MAX, '\0');
    const ssize_t size = pread(file, content.data(), content.size(), 0);
    content.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return content;
}

template <typename Number> bool takeNumber(std::string_view &line, Number *number) {
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), *number);
    if (error != std::errc() || end == line.data() + line.size() || *end != ' ') { return false; }
    line.remove_prefix(static_cast<std::size_t>(end - line.data()) + 1);
    return true;
}

std::optional<Sent> sentFromLine(std::string_view line) {
    Sent sent;
    const bool isWhole = takeNumber(line, &sent.time) && takeNumber(line, &sent.reference) &&
                         takeNumber(line, &sent.segment) && takeNumber(line, &sent.segments);
    if (!isWhole || line.empty()) { return std::nullopt; }
    sent.number = line;
    return sent;
}

std::string_view lastDigits(std::string_view number) {
    const std::size_t size = std::min(number.size(), SIGNIFICANT_DIGITS);
    return number.substr(number.size() - size);
}

bool isSameNumber(std::string_view a, std::string_view b) {
    if (a == b) { return true; }
    return lastDigits(a).size() == SIGNIFICANT_DIGITS && lastDigits(a) == lastDigits(b);
}

} // namespace

void recordSent(const Sent &sent) {
    try {
        const ipc::Descriptor file = openRecord(O_RDWR | O_CREAT, LOCK_EX);
        if (!file.isOpen()) { return; }
        std::vector<Sent> all = sentFrom(contentOf(file.get()));
        all.push_back(sent);
        if (all.size() > SENT_MAX) { all.erase(all.begin(), all.end() - SENT_MAX); }
        const std::string lines = linesOf(all);
        if (ftruncate(file.get(), 0) != 0) { return; }
        [[maybe_unused]] const ssize_t written = pwrite(file.get(), lines.data(), lines.size(), 0);
    } catch (const std::exception &) { return; }
}

std::optional<Sent> findSent(u32 reference, std::string_view number) {
    try {
        const ipc::Descriptor file = openRecord(O_RDONLY, LOCK_SH);
        if (!file.isOpen()) { return std::nullopt; }
        const std::vector<Sent> all = sentFrom(contentOf(file.get()));
        const auto newest = std::find_if(all.rbegin(), all.rend(), [&](const Sent &sent) {
            return sent.reference == reference && isSameNumber(sent.number, number);
        });
        return newest == all.rend() ? std::nullopt : std::optional(*newest);
    } catch (const std::exception &) { return std::nullopt; }
}

std::string linesOf(const std::vector<Sent> &sent) {
    std::string lines;
    for (const Sent &one : sent) {
        lines += fmt::format("{} {} {} {} {}\n", one.time, one.reference, one.segment, one.segments,
                             one.number);
    }
    return lines;
}

std::vector<Sent> sentFrom(std::string_view lines) {
    std::vector<Sent> sent;
    while (!lines.empty()) {
        const std::size_t end = lines.find('\n');
        if (end == lines.npos) { break; } // cut short
        if (auto one = sentFromLine(lines.substr(0, end))) { sent.push_back(*std::move(one)); }
        lines.remove_prefix(end + 1);
    }
    return sent;
}

} // namespace smspb::cli

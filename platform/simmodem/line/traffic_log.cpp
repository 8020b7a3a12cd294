#include "platform/simmodem/line/traffic_log.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace smspb::simmodem {
namespace {

std::string visibleForm(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '\r') {
            out += "\\r";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\\') {
            out += "\\\\";
        } else if (code < ' ' || code > '~') {
            out += fmt::format("\\x{:02X}", code);
        } else {
            out += c;
        }
    }
    return out;
}

std::string messageOf(int error) { return std::generic_category().message(error); }

} // namespace

void TrafficLog::Close::operator()(std::FILE *stream) const {
    if (stream != stderr) { std::fclose(stream); }
}

void TrafficLog::open(const std::string &path) {
    out_.reset(path == "-" ? stderr : std::fopen(path.c_str(), "ae"));
    if (out_ == nullptr) {
        throw std::runtime_error("the log " + path + " cannot be written: " + messageOf(errno));
    }
    std::setvbuf(out_.get(), nullptr, _IOLBF, BUFSIZ);
}

// A log that cannot be written is no reason to keep the modem from its work.
void TrafficLog::write(Mark mark, std::string_view text) {
    if (out_ == nullptr) { return; }
    const std::string line = fmt::format("{} {} {}\n", isoTime(clock_.wallTime()),
                                         static_cast<char>(mark), visibleForm(text));
    const bool written = std::fwrite(line.data(), 1, line.size(), out_.get()) == line.size() &&
                         std::fflush(out_.get()) == 0;
    if (!written && !failed_) { spdlog::error("the log cannot be written: {}", messageOf(errno)); }
    failed_ = !written;
    std::clearerr(out_.get());
}

} // namespace smspb::simmodem

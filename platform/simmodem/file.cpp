#include "file.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace smspb::simmodem {
namespace {

[[noreturn]] void refuseFile(const std::filesystem::path &path, const std::string &why) {
    throw std::runtime_error(path.string() + ": " + why);
}

struct CloseStream {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
};

} // namespace

std::string readFile(const std::filesystem::path &path, std::size_t octetsMax) {
    const std::unique_ptr<std::FILE, CloseStream> in(std::fopen(path.c_str(), "re"));
    if (in == nullptr) { refuseFile(path, std::generic_category().message(errno)); }
    std::string text;
    std::array<char, 65536> buffer{};
    while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), in.get())) {
        text.append(buffer.data(), size);
        if (text.size() > octetsMax) {
            refuseFile(path, "too large, " + std::to_string(octetsMax) + " octets at most");
        }
    }
    if (std::ferror(in.get()) != 0) { refuseFile(path, std::generic_category().message(errno)); }
    return text;
}

} // namespace smspb::simmodem

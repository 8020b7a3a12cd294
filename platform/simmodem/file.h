// Whole files, with errors that name the file and say what is wrong.
#pragma once

#include <filesystem>
#include <string>

namespace smspb::simmodem {

// Throws std::runtime_error when it cannot be read or has more than `octetsMax`.
std::string readFile(const std::filesystem::path &path, std::size_t octetsMax);

} // namespace smspb::simmodem

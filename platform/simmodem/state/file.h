// Whole files, with errors that name the file and say what is wrong.
#pragma once

#include <filesystem>
#include <string>

namespace smspb::simmodem {

// Throws std::runtime_error when it cannot be read or has more than `octetsMax`.
std::string readFile(const std::filesystem::path &path, std::size_t octetsMax);

// A file whose content is replaced as a whole: whoever reads it, at whatever moment, finds the old
// content or the new one, whatever happens meanwhile. Locked against other writers of this kind.
class ReplacedFile {
public:
    // Throws std::runtime_error when it cannot be one, or somebody else has it. A link is followed.
    explicit ReplacedFile(const std::filesystem::path &path);
    ~ReplacedFile();
    ReplacedFile(const ReplacedFile &) = delete;
    ReplacedFile &operator=(const ReplacedFile &) = delete;

    const std::filesystem::path &path() const { return path_; }
    bool exists() const { return locked_ >= 0; } // it did, or has been replaced since

    // On the disk when this returns. Throws std::runtime_error, the old content in place.
    void replace(const std::string &content);

private:
    std::filesystem::path path_;
    int locked_ = -1; // the file as it is now
};

} // namespace smspb::simmodem

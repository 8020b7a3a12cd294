#include "vectors.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <optional>
#include <ostream>

namespace support {
namespace {

[[noreturn]] void stop(const std::string &where, const std::string &what) {
    std::fprintf(stderr, "%s: %s\n", where.c_str(), what.c_str());
    std::exit(2);
}

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) { return ""; }
    return std::string(text.substr(first, text.find_last_not_of(" \t\r") - first + 1));
}

std::optional<u32> parseNumber(const std::string &text) {
    char *end = nullptr;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || value > 0xFFFFFFFFULL) { return std::nullopt; }
    return static_cast<u32>(value);
}

bool isHexDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

u8 octetOf(std::string_view pair) {
    return static_cast<u8>(std::strtoul(std::string(pair).c_str(), nullptr, 16));
}

// One word of the notation: "05", "0581" or "61x153".
bool appendOctets(std::string_view word, std::vector<u8> *out) {
    const auto times = word.find('x');
    if (times == 2 && isHexDigit(word[0]) && isHexDigit(word[1])) {
        const auto count = parseNumber(std::string(word.substr(3)));
        if (!count) { return false; }
        out->insert(out->end(), *count, octetOf(word.substr(0, 2)));
        return true;
    }
    if (word.size() % 2 != 0) { return false; }
    for (std::size_t i = 0; i < word.size(); i += 2) {
        if (!isHexDigit(word[i]) || !isHexDigit(word[i + 1])) { return false; }
        out->push_back(octetOf(word.substr(i, 2)));
    }
    return true;
}

std::optional<std::vector<u8>> parseOctets(std::string_view notation) {
    std::vector<u8> octets;
    while (!notation.empty()) {
        const auto blank = notation.find_first_of(" \t");
        if (!appendOctets(notation.substr(0, blank), &octets)) { return std::nullopt; }
        if (blank == std::string_view::npos) { break; }
        notation.remove_prefix(blank + 1);
    }
    return octets;
}

} // namespace

Vector::Vector(std::string file, int line, std::string sentence, std::vector<Field> fields)
    : file_(std::move(file)), line_(line), sentence_(std::move(sentence)),
      fields_(std::move(fields)) {}

std::string Vector::where() const { return file_ + ":" + std::to_string(line_); }

const Vector::Field *Vector::find(std::string_view key) const {
    read_.emplace(key);
    for (const Field &field : fields_) {
        if (field.key == key) { return &field; }
    }
    return nullptr;
}

bool Vector::has(std::string_view key) const { return find(key) != nullptr; }

std::string Vector::text(std::string_view key) const {
    const Field *field = find(key);
    if (field == nullptr) { ADD_FAILURE() << where() << ": no \"" << key << "\""; }
    return field != nullptr ? field->value : "";
}

u32 Vector::number(std::string_view key) const {
    const std::string value = text(key);
    const auto number = parseNumber(value);
    if (!number) {
        ADD_FAILURE() << where() << ": \"" << key << " = " << value << "\" is not a number";
    }
    return number.value_or(0);
}

u32 Vector::number(std::string_view key, u32 otherwise) const {
    return has(key) ? number(key) : otherwise;
}

i32 Vector::integer(std::string_view key) const {
    const std::string value = text(key);
    const bool negative = !value.empty() && value[0] == '-';
    const auto magnitude = parseNumber(negative ? value.substr(1) : value);
    if (!magnitude || *magnitude > 0x7FFFFFFF) {
        ADD_FAILURE() << where() << ": \"" << key << " = " << value << "\" is not an integer";
        return 0;
    }
    return negative ? -static_cast<i32>(*magnitude) : static_cast<i32>(*magnitude);
}

std::vector<u8> Vector::octets(std::string_view key) const {
    const std::string value = text(key);
    const auto octets = parseOctets(value);
    if (!octets) {
        ADD_FAILURE() << where() << ": \"" << key << " = " << value << "\" are not octets";
    }
    return octets.value_or(std::vector<u8>());
}

std::vector<std::string> Vector::texts(std::string_view key) const {
    read_.emplace(key);
    std::vector<std::string> values;
    for (const Field &field : fields_) {
        if (field.key == key) { values.push_back(field.value); }
    }
    return values;
}

void Vector::expectAllRead() const {
    for (const Field &field : fields_) {
        EXPECT_TRUE(read_.count(field.key) != 0)
            << where() << ": nobody reads \"" << field.key << "\"";
    }
}

void PrintTo(const Vector &vector, std::ostream *out) {
    *out << vector.where() << " [" << vector.sentence() << "]";
}

std::vector<Vector> readVectors(const char *file) {
    std::ifstream in(std::string(SMSPB_VECTORS_DIR "/") + file);
    if (!in) { stop(file, "cannot be read in " SMSPB_VECTORS_DIR); }
    std::vector<Vector> vectors;
    std::string sentence;
    std::vector<Vector::Field> fields;
    int number = 0, begin = 0;
    const auto finish = [&] {
        if (!sentence.empty()) { vectors.emplace_back(file, begin, sentence, std::move(fields)); }
        fields.clear();
    };
    for (std::string line; std::getline(in, line);) {
        number++;
        const std::string text = trimmed(line);
        const std::string where = std::string(file) + ":" + std::to_string(number);
        const auto equals = text.find('=');
        if (text.empty() || text[0] == '#') { continue; }
        if (text[0] == '[' && text.back() == ']') {
            finish();
            sentence = text.substr(1, text.size() - 2);
            begin = number;
        } else if (equals == std::string::npos || sentence.empty()) {
            stop(where, "neither [sentence] nor key = value");
        } else {
            fields.push_back({trimmed(text.substr(0, equals)), trimmed(text.substr(equals + 1))});
        }
    }
    finish();
    if (vectors.empty()) { stop(file, "holds no vectors"); }
    return vectors;
}

std::string vectorName(const ::testing::TestParamInfo<Vector> &info) {
    std::string name;
    bool begin = true;
    for (const char c : info.param.sentence()) {
        const auto u = static_cast<unsigned char>(c);
        if (std::isalnum(u) == 0) {
            begin = true;
            continue;
        }
        name += begin ? static_cast<char>(std::toupper(u)) : c;
        begin = false;
    }
    return name;
}

std::vector<u8> octets(std::string_view notation) {
    auto parsed = parseOctets(notation);
    if (!parsed) {
        ADD_FAILURE() << "\"" << notation << "\" are not octets";
        return {};
    }
    return *std::move(parsed);
}

std::string hex(const std::vector<u8> &octets) {
    static const char DIGITS[] = "0123456789ABCDEF";
    std::string text;
    for (const u8 octet : octets) {
        text += DIGITS[octet >> 4];
        text += DIGITS[octet & 0x0F];
    }
    return text;
}

std::vector<u16> units(std::u16string_view text) {
    std::vector<u16> result(text.begin(), text.end());
    result.push_back(0);
    return result;
}

std::u16string textOf(const u16 *units) {
    std::u16string text;
    while (*units != 0) { text += static_cast<char16_t>(*units++); }
    return text;
}

} // namespace support

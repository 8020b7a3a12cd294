// Test data as text: files of tests/vectors, each a list of
//
//     # a comment
//     [the sentence that names the test]
//     key = value
//
// A number is decimal or 0x...; octets are two hexadecimal digits each, blanks as you like, and
// "61x153" stands for 153 times 61. Every field must be read by the test: a key that nobody asked
// for is a mistake in the file.
#ifndef SMSPB_TESTS_VECTORS_H
#define SMSPB_TESTS_VECTORS_H

#include <gtest/gtest.h>

#include <iosfwd>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"

namespace support {

class Vector {
public:
    struct Field {
        std::string key, value;
    };
    Vector(std::string file, int line, std::string sentence, std::vector<Field> fields);

    const std::string &sentence() const { return sentence_; }
    std::string where() const; // "address.txt:12"

    bool has(std::string_view key) const;
    // A missing key or a value of the wrong form is a failure of the test.
    std::string text(std::string_view key) const;
    u32 number(std::string_view key) const;
    u32 number(std::string_view key, u32 otherwise) const;
    i32 integer(std::string_view key) const; // signed
    std::vector<u8> octets(std::string_view key) const;
    // The values of a key that stands several times, in order.
    std::vector<std::string> texts(std::string_view key) const;

    // The keys that the test did not ask for. Checked at the end by expectAllRead().
    void expectAllRead() const;

private:
    const Field *find(std::string_view key) const;
    std::string file_;
    int line_;
    std::string sentence_;
    std::vector<Field> fields_;
    mutable std::set<std::string, std::less<>> read_;
};
void PrintTo(const Vector &vector, std::ostream *out);

// The vectors of tests/vectors/`file`, in order. Ends the program when the file is missing or
// wrong.
std::vector<Vector> readVectors(const char *file);

// "a text of 160 characters" -> "ATextOf160Characters".
std::string vectorName(const ::testing::TestParamInfo<Vector> &info);

// Octets from the notation of a vector file.
std::vector<u8> octets(std::string_view notation);
// Octets as upper-case hexadecimal text without blanks.
std::string hex(const std::vector<u8> &octets);
// A zero-terminated string of host-order units: units(u"text").
std::vector<u16> units(std::u16string_view text);
// The units before the zero, for comparing with u"...".
std::u16string textOf(const u16 *units);

// The fixture of a suite of vectors.
class VectorTest : public ::testing::TestWithParam<Vector> {
protected:
    const Vector &v() const { return GetParam(); }
    void TearDown() override { GetParam().expectAllRead(); }
};

} // namespace support

// All vectors of a file for a suite derived from VectorTest (or TestWithParam<Vector>).
#define SMSPB_VECTORS(suite, file)                                                                 \
    INSTANTIATE_TEST_SUITE_P(Vectors, suite, ::testing::ValuesIn(support::readVectors(file)),      \
                             support::vectorName)

#endif

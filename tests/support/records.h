// Records of the transfer layer from the fields of a vector, and their comparison.
#ifndef SMSPB_TESTS_RECORDS_H
#define SMSPB_TESTS_RECORDS_H

#include <cstring>
#include <string>
#include <vector>

#include "atlib/SmsEncoding.h"
#include "vectors.h"

namespace support {

// Every octet of a record, for "left as it was".
template <typename T> std::vector<u8> octetsOf(const T &record) {
    std::vector<u8> octets(sizeof(record));
    std::memcpy(octets.data(), &record, sizeof(record));
    return octets;
}

template <typename T> T cleared() {
    T record;
    std::memset(&record, 0, sizeof(record));
    return record;
}

// "type", "plan" and "digits" (one hexadecimal digit each) or "characters" (septets).
SmsAddress addressFrom(const Vector &v);
SmsAddress numericAddress(const std::string &digits, u32 type = 0, u32 plan = 1);
void expectAddress(const SmsAddress &actual, const SmsAddress &expected);

// Six BCD fields and the time zone in quarter hours.
SmsTimestamp timestampFrom(const std::vector<u8> &fields, i32 timezone = 0);
void expectTimestamp(const SmsTimestamp &actual, const SmsTimestamp &expected);

SmsDcs codingScheme(u32 alphabet, u32 msgClass = MSG_CLASS_NONE);

SmsUdhIe concat8(u32 reference, u32 total, u32 sequence);
SmsUdhIe concat16(u32 reference, u32 total, u32 sequence);
// An element that is only measured: sound, picture and the like.
SmsUdhIe otherElement(u32 id, u8 first = 0, u8 second = 0);
std::vector<SmsUdhIe> elementsFrom(const Vector &v); // all "element" fields
void expectElement(const SmsUdhIe &actual, const SmsUdhIe &expected);

SmsUserData userData(const std::vector<u8> &body, const std::vector<SmsUdhIe> &elements = {});
SmsUserData userDataFrom(const Vector &v); // "body" and the elements
// Counts, elements and body; what lies behind the body is not compared.
void expectUserData(const SmsUserData &actual, const SmsUserData &expected);

// A TPDU as the decoders get it: the octets, then `rest` to the end of the buffer.
SmsRawTpdu rawTpdu(const std::vector<u8> &octets, u8 rest = 0);

} // namespace support

#endif

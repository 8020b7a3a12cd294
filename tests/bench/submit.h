// Composing a message: the library's way, and by hand around libosmocore's coders, which have no
// SMS-SUBMIT of their own.
#ifndef SMSPB_TESTS_BENCH_SUBMIT_H
#define SMSPB_TESTS_BENCH_SUBMIT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "atlib/SmsUtils.h"

namespace bench {

inline constexpr const char *NUMBER = "+4915112345678";
inline constexpr const char *NUMBER_DIGITS = "4915112345678";

// A request for a message to NUMBER; the text must outlive it.
SmsMessage requestFor(std::vector<u16> &text);

// What sms_encode_pdu made last. take() gives the block back, and keeps its PDU texts only where
// they are wanted for checking.
struct Composed {
    SmsSegment *segments = nullptr;
    u8 count = 0;
};
// Composes and frees at once, as a caller does that has sent the message.
void compose(const SmsMessage &request);
// Composes and returns the PDU texts.
std::vector<std::string> composed(const SmsMessage &request);

// One PDU text by libosmocore; the text is ISO 8859-1.
void composeByHand(const std::string &text, char *pdu, std::size_t room);
// A text in segments of 153 septets each, `room` characters apart.
void composeSegmentsByHand(const std::string &text, char *pdus, std::size_t room);

// Null when both are the same PDU texts but for the case of their digits.
const char *otherThan(const std::vector<std::string> &wanted, const char *pdus, std::size_t room);

} // namespace bench

#endif

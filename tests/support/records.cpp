#include "records.h"

#include <algorithm>
#include <sstream>

namespace support {
namespace {

u8 digitValue(char c) { return octets(std::string("0") + c).at(0); }

} // namespace

SmsAddress numericAddress(const std::string &digits, u32 type, u32 plan) {
    auto address = cleared<SmsAddress>();
    address.number_type = type;
    address.number_plan = plan;
    address.number_of_digits = static_cast<u8>(digits.size());
    std::transform(digits.begin(), digits.end(), address.digits, digitValue);
    return address;
}

SmsAddress addressFrom(const Vector &v) {
    if (!v.has("characters")) {
        return numericAddress(v.text("digits"), v.number("type", 0), v.number("plan", 1));
    }
    const auto characters = v.octets("characters");
    SmsAddress address = numericAddress("", v.number("type"), v.number("plan"));
    address.digit_mode = 1;
    address.number_of_digits = static_cast<u8>(characters.size());
    std::copy(characters.begin(), characters.end(), address.digits);
    return address;
}

void expectAddress(const SmsAddress &actual, const SmsAddress &expected) {
    EXPECT_EQ(actual.digit_mode, expected.digit_mode);
    EXPECT_EQ(actual.number_type, expected.number_type);
    EXPECT_EQ(actual.number_plan, expected.number_plan);
    const auto digits = [](const SmsAddress &a) {
        return std::vector<u8>(
            a.digits, a.digits + std::min<int>(a.number_of_digits, SMS_ADDRESS_DIGITS_ROOM));
    };
    EXPECT_EQ(digits(actual), digits(expected));
}

SmsTimestamp timestampFrom(const std::vector<u8> &fields, i32 timezone) {
    auto timestamp = cleared<SmsTimestamp>();
    if (fields.size() != 6) {
        ADD_FAILURE() << "a time has six fields";
        return timestamp;
    }
    timestamp.year = fields[0];
    timestamp.month = fields[1];
    timestamp.day = fields[2];
    timestamp.hour = fields[3];
    timestamp.minute = fields[4];
    timestamp.second = fields[5];
    timestamp.timezone = static_cast<int8_t>(timezone);
    return timestamp;
}

void expectTimestamp(const SmsTimestamp &actual, const SmsTimestamp &expected) {
    const auto fields = [](const SmsTimestamp &t) {
        return hex({t.year, t.month, t.day, t.hour, t.minute, t.second}) + " zone " +
               std::to_string(t.timezone);
    };
    EXPECT_EQ(fields(actual), fields(expected));
}

SmsDcs codingScheme(u32 alphabet, u32 msgClass) {
    auto dcs = cleared<SmsDcs>();
    dcs.alphabet = alphabet;
    dcs.msg_class = msgClass;
    return dcs;
}

SmsUdhIe concat8(u32 reference, u32 total, u32 sequence) {
    auto element = cleared<SmsUdhIe>();
    element.header_id = UDH_CONCAT_8;
    element.payload.concat8.msg_ref = static_cast<u8>(reference);
    element.payload.concat8.total_sm = static_cast<u8>(total);
    element.payload.concat8.seq_num = static_cast<u8>(sequence);
    return element;
}

SmsUdhIe concat16(u32 reference, u32 total, u32 sequence) {
    auto element = cleared<SmsUdhIe>();
    element.header_id = UDH_CONCAT_16;
    element.payload.concat16.msg_ref = static_cast<u16>(reference);
    element.payload.concat16.total_sm = static_cast<u8>(total);
    element.payload.concat16.seq_num = static_cast<u8>(sequence);
    return element;
}

SmsUdhIe otherElement(u32 id, u8 first, u8 second) {
    auto element = cleared<SmsUdhIe>();
    element.header_id = id;
    if (id == UDH_VARIABLE_PICTURE) {
        element.payload.picture.dimension1 = first;
        element.payload.picture.dimension2 = second;
    } else if (id == UDH_TEXT_FORMATTING) {
        element.payload.text_formatting.colour_present = first;
    } else if (id == UDH_USER_SOUND) {
        element.payload.sound.data_length = first;
    } else {
        element.payload.other.data_length = first;
    }
    return element;
}

std::vector<SmsUdhIe> elementsFrom(const Vector &v) {
    std::vector<SmsUdhIe> elements;
    for (const std::string &text : v.texts("element")) {
        std::istringstream words(text);
        std::string kind, reference;
        u32 total = 0, sequence = 0;
        words >> kind >> reference >> total >> sequence;
        const u32 number = static_cast<u32>(std::stoul(reference, nullptr, 0));
        elements.push_back(kind == "concat16" ? concat16(number, total, sequence)
                                              : concat8(number, total, sequence));
    }
    return elements;
}

void expectElement(const SmsUdhIe &actual, const SmsUdhIe &expected) {
    ASSERT_EQ(actual.header_id, expected.header_id);
    if (expected.header_id == UDH_CONCAT_8) {
        EXPECT_EQ(actual.payload.concat8.msg_ref, expected.payload.concat8.msg_ref);
        EXPECT_EQ(actual.payload.concat8.total_sm, expected.payload.concat8.total_sm);
        EXPECT_EQ(actual.payload.concat8.seq_num, expected.payload.concat8.seq_num);
    } else {
        EXPECT_EQ(actual.payload.concat16.msg_ref, expected.payload.concat16.msg_ref);
        EXPECT_EQ(actual.payload.concat16.total_sm, expected.payload.concat16.total_sm);
        EXPECT_EQ(actual.payload.concat16.seq_num, expected.payload.concat16.seq_num);
    }
}

SmsUserData userData(const std::vector<u8> &body, const std::vector<SmsUdhIe> &elements) {
    auto data = cleared<SmsUserData>();
    data.num_headers = static_cast<u8>(elements.size());
    std::copy_n(elements.begin(), std::min<std::size_t>(elements.size(), SMS_MAX_UDH_IES),
                data.headers);
    data.sm_len = static_cast<u16>(body.size());
    std::copy_n(body.begin(), std::min<std::size_t>(body.size(), SMS_MAX_TPDU_LEN), data.sm_data);
    return data;
}

SmsUserData userDataFrom(const Vector &v) {
    return userData(v.has("body") ? v.octets("body") : std::vector<u8>(), elementsFrom(v));
}

void expectUserData(const SmsUserData &actual, const SmsUserData &expected) {
    ASSERT_EQ(actual.num_headers, expected.num_headers);
    for (int i = 0; i < expected.num_headers; i++) {
        expectElement(actual.headers[i], expected.headers[i]);
    }
    ASSERT_EQ(actual.sm_len, expected.sm_len);
    ASSERT_LE(actual.sm_len, SMS_MAX_TPDU_LEN);
    EXPECT_EQ(hex({actual.sm_data, actual.sm_data + actual.sm_len}),
              hex({expected.sm_data, expected.sm_data + expected.sm_len}));
}

SmsRawTpdu rawTpdu(const std::vector<u8> &octets, u8 rest) {
    auto raw = cleared<SmsRawTpdu>();
    std::memset(raw.data, rest, sizeof(raw.data));
    EXPECT_LE(octets.size(), sizeof(raw.data));
    std::copy_n(octets.begin(), std::min(octets.size(), sizeof(raw.data)), raw.data);
    raw.len = static_cast<u32>(octets.size());
    return raw;
}

} // namespace support

// What many cost beside what one costs. Without log lines, which would hide the work.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <numeric>

#include "atlib/CPbSIM.h"
#include "case.h"
#include "platform.h"
#include "submit.h"
#include "texts.h"

namespace bench {
namespace {

std::vector<i32> firstNumbers(std::size_t count) {
    std::vector<i32> all(count);
    std::iota(all.begin(), all.end(), 1);
    return all;
}

template <int COUNT> std::vector<u16> &segmentText() {
    static std::vector<u16> text = units(ascii(COUNT == 1 ? MESSAGE_SEPTETS : COUNT * 153));
    return text;
}

template <int COUNT> void addSegments() {
    add(
        "segments " + std::to_string(COUNT) + "/growth",
        [] {
            static const SmsMessage REQUEST = requestFor(segmentText<COUNT>());
            compose(REQUEST);
        },
        [] {
            return composed(requestFor(segmentText<COUNT>())).size() == COUNT
                       ? nullptr
                       : "another number of segments";
        });
}

// A name with an umlaut, in UCS-2.
constexpr char ENTRY[] =
    "\r\n+CPBR: 7,\"+4915112345678\",145,\"004D00FC006C006C00650072\"\r\n\r\nOK\r\n";
constexpr char NAME[] = "M\xC3\xBCller";

pb_info_t contact;

template <int COUNT> void addContacts() {
    add(
        "contacts read " + std::to_string(COUNT) + "/growth",
        [] {
            answerWith(ENTRY);
            for (i32 i = 1; i <= COUNT; i++) { read_contact(&contact, i); }
        },
        [] {
            const bool isIt =
                std::strcmp(contact.name, NAME) == 0 && std::strcmp(contact.number, NUMBER) == 0;
            return isIt ? nullptr : "another contact";
        });
}

u32 deleteResult;

template <int COUNT> void addDeletions() {
    add(
        "contacts deleted " + std::to_string(COUNT) + "/growth",
        [] {
            static const std::vector<i32> INDEXES = firstNumbers(COUNT);
            answerWith("\r\nOK\r\n");
            deleteResult = SM_DeleteMultiItems(INDEXES.data(), COUNT);
        },
        [] { return deleteResult == PB_OK ? nullptr : "refused"; });
}

const Register CASES([] {
    addSegments<1>();
    addSegments<8>();
    addSegments<32>();
    addSegments<128>();
    addSegments<255>();
    addContacts<1>();
    addContacts<10>();
    addContacts<100>();
    addContacts<500>();
    addDeletions<1>();
    addDeletions<10>();
    addDeletions<100>();
    addDeletions<500>();
});

} // namespace
} // namespace bench

// Composing without the log lines: what the work itself costs. Built against the library compiled
// with SMSPB_NO_LOG.
#include "case.h"
#include "submit.h"
#include "texts.h"

namespace bench {
namespace {

const std::string TEXT = ascii(MESSAGE_SEPTETS);
std::vector<u16> textUnits = units(TEXT);
const SmsMessage REQUEST = requestFor(textUnits);

constexpr std::size_t ROOM = 512;
char pdu[ROOM];

const Register CASES([] {
    add(
        "SUBMIT 160, log off/ours", [] { compose(REQUEST); },
        [] { return composed(REQUEST).size() == 1 ? nullptr : "not one segment"; });
    add(
        "SUBMIT 160, log off/osmocom", [] { composeByHand(TEXT, pdu, ROOM); },
        [] { return otherThan(composed(REQUEST), pdu, ROOM); });
});

} // namespace
} // namespace bench

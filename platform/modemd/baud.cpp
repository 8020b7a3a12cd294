#include "platform/modemd/baud.h"

#include <algorithm>
#include <iterator>

namespace smspb::modemd {
namespace {

struct Rate {
    unsigned baud;
    speed_t speed;
};
constexpr Rate RATES[] = {
    {    300,     B300},
    {    600,     B600},
    {   1200,    B1200},
    {   2400,    B2400},
    {   4800,    B4800},
    {   9600,    B9600},
    {  19200,   B19200},
    {  38400,   B38400},
    {  57600,   B57600},
    { 115200,  B115200},
    { 230400,  B230400},
    { 460800,  B460800},
    { 500000,  B500000},
    { 576000,  B576000},
    { 921600,  B921600},
    {1000000, B1000000},
    {1152000, B1152000},
    {1500000, B1500000},
    {2000000, B2000000},
    {2500000, B2500000},
    {3000000, B3000000},
    {3500000, B3500000},
    {4000000, B4000000},
};

} // namespace

speed_t speedOf(unsigned baud) {
    const auto *row = std::find_if(std::begin(RATES), std::end(RATES),
                                   [baud](const Rate &rate) { return rate.baud == baud; });
    return row != std::end(RATES) ? row->speed : B0;
}

bool isBaudRate(unsigned baud) { return speedOf(baud) != B0; }

} // namespace smspb::modemd

// The state of the simulated modem. Command handlers work on it; it knows no terminal.
#pragma once

#include "platform/simmodem/control/faults.h"
#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/modem/clock.h"
#include "platform/simmodem/modem/phonebook.h"
#include "platform/simmodem/modem/storage_view.h"
#include "platform/simmodem/network/ussd.h"

#include <array>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace smspb::simmodem {

// +CMEE (TS 27.007, 9.1).
enum class ErrorReports { off = 0, numeric = 1, text = 2 };

// +CNMI (TS 27.005, 3.4.1).
struct IndicationSettings {
    unsigned mode = 2, mt = 0, bm = 0, ds = 0, bfr = 0;

    bool operator==(const IndicationSettings &) const = default;
};

// +CSCB (TS 27.005, 3.3.4).
struct BroadcastSettings {
    unsigned mode = 0;
    std::string identifiers, codings;

    bool operator==(const BroadcastSettings &) const = default;
};

// +CSMP (TS 27.005, 3.3.3): what a message entered in text mode has beside number and text.
struct TextParameters {
    std::uint8_t first = 17; // TP-MTI and the flags of a SUBMIT
    Octets validity = {167}; // TP-VP: an octet, or seven of an absolute or enhanced one
    std::uint8_t pid = 0, dcs = 0;

    bool operator==(const TextParameters &) const = default;
};

// What AT&F sets back to these values and ATZ to the profile of AT&W.
struct Settings {
    bool echo = true;
    bool quiet = false;
    bool verbose = true;
    std::map<unsigned, unsigned char> registers = {
        { 0,    0},
        { 3, '\r'},
        { 4, '\n'},
        { 5, '\b'},
        { 6,    2},
        { 7,   60},
        { 8,    2},
        {10,   14}
    }; // V.250, S
    ErrorReports errorReports = ErrorReports::off;
    bool textMode = false;            // +CMGF
    bool showsTextDetails = false;    // +CSDH
    TextParameters textParameters;    // +CSMP
    bool acknowledges = false;        // +CSMS <service> 1
    std::string charset = "IRA";      // +CSCS
    unsigned registrationReports = 0; // +CREG
    unsigned packetReports = 0;       // +CGREG
    unsigned operatorFormat = 0;      // +COPS <format>
    unsigned moreMessages = 0;        // +CMMS
    IndicationSettings indications;
    BroadcastSettings broadcasts;
    unsigned ussdPresentation = 0;                     // +CUSD <n>
    std::map<std::string, std::vector<unsigned>> kept; // of the commands in commands_settings.cpp
    bool callerNumber = false;                         // +CLIP
    bool extendedRing = false;                         // +CRC
    bool showsWaitingCalls = false;                    // +CCWA <n>

    bool operator==(const Settings &) const = default;

    char terminator() const { return static_cast<char>(registers.at(3)); }
    char lineFeed() const { return static_cast<char>(registers.at(4)); }
    char eraser() const { return static_cast<char>(registers.at(5)); }
};

// The uses of a storage in the order of +CPMS: <mem1> read and delete, <mem2> write and send,
// <mem3> receive.
enum Use : std::size_t { USE_READ = 0, USE_WRITE = 1, USE_RECEIVE = 2, USE_COUNT = 3 };

// What it may be, "MT" for both storages together.
inline constexpr std::array<std::string_view, 3> STORAGE_NAMES = {"ME", "SM", "MT"};

// +CSAS and +CRES (TS 27.005, 3.3.5 and 3.3.6).
struct MessageProfile {
    std::string serviceCentre;
    TextParameters textParameters;
    BroadcastSettings broadcasts;

    bool operator==(const MessageProfile &) const = default;
};

// What the network has for this modem.
struct Incoming {
    enum class Kind { message, report };
    Kind kind;
    Pdu pdu;
    std::optional<Pdu> report; // follows when this message is received

    bool operator==(const Incoming &) const = default;
};

// +CGDCONT (TS 27.007, 10.1.1); without a type there is none.
struct PacketContext {
    std::string type, accessPoint;

    bool operator==(const PacketContext &) const = default;
};

struct ModemOptions {
    std::string number = "+15550001000";
    std::string serviceCentre = "+15550000099";
    std::size_t meSize = 100, smSize = 50;
    IndexScheme indexes;
    std::size_t mePhonebookSize = 100, smPhonebookSize = 250;
    PhonebookLimits phonebookLimits;
    bool interjects = false;
    bool alwaysEchoes = false;
    std::vector<std::string> charsets; // that +CSCS offers; none for all
};

// What outlives the power: the SIM, and what the modem itself writes down.
struct Memory {
    explicit Memory(const ModemOptions &options)
        : number(options.number),
          serviceCentre(options.serviceCentre), storages{Storage("ME", options.meSize),
                                                         Storage("SM", options.smSize)},
          phonebooks(makePhonebooks(options.smPhonebookSize, options.mePhonebookSize, number)) {
        messageProfiles.fill({options.serviceCentre, {}, {}});
    }

    std::string number;
    std::string serviceCentre; // empty for none
    Settings profile;          // of AT&W
    std::array<MessageProfile, 2> messageProfiles;
    std::array<Storage, 2> storages;
    std::array<std::size_t, USE_COUNT> selected = {1, 1, 1}; // index in STORAGE_NAMES
    std::vector<Phonebook> phonebooks;
    std::uint8_t lastReference = 0;
    std::deque<Incoming> pending;           // from the network, waiting for room
    std::optional<Incoming> unacknowledged; // handed over while +CSMS is 1
    std::uint8_t nextConcatenation = 0;     // of messages from the network
    std::uint16_t nextSerialNumber = 0;     // of cell broadcast
    std::array<PacketContext, 3> contexts;
    std::time_t clockAhead = 0; // seconds that +CCLK is set ahead of the clock

    bool operator==(const Memory &) const = default;
};

struct Modem : Memory {
    explicit Modem(const ModemOptions &options)
        : Memory(options), phonebookLimits(options.phonebookLimits), indexes(options.indexes),
          interjects(options.interjects), alwaysEchoes(options.alwaysEchoes),
          charsets(options.charsets) {
        if (charsets.empty()) { charsets.assign(CHARSETS.begin(), CHARSETS.end()); }
        settings = profile = factorySettings();
    }

    Clock clock;
    Settings settings;
    PhonebookLimits phonebookLimits;
    IndexScheme indexes;
    std::size_t selectedPhonebook = 0; // index in `phonebooks`
    Timer acknowledgementTimer{clock}; // runs once what was handed over has been put out
    std::deque<std::string> held;      // unsolicited, kept back by +CNMI mode 0
    std::deque<std::string>
        unsolicited; // to go out as soon as no command runs; lines joined by "\n"
    bool simPresent = true;
    unsigned functionality = 1; // +CFUN: 1 for everything, otherwise the radio is off
    bool isAttached = true;     // +CGATT
    unsigned operatorMode = 0;  // +COPS <mode>
    bool isShownRegistered = true, isShownAttached = true; // what +CREG and +CGREG told last
    bool interjects;   // between command and reply too, as real modems do
    bool alwaysEchoes; // whatever ATE asks for
    std::vector<std::string> charsets;
    UssdDialogue ussd;
    Timer ussdTimer{clock}; // the answer that comes by itself
    Faults faults;
    bool hasLostLine = false; // what is under way on the line goes as well

    Phonebook &phonebook() { return phonebooks.at(selectedPhonebook); }
    // By its index in STORAGE_NAMES.
    StorageView view(std::size_t named);
    StorageView storage(Use use) { return view(selected.at(use)); }

    // Whether there is a network: messages come and go.
    bool isRegistered() const {
        static constexpr unsigned DEREGISTERED = 2; // +COPS <mode>
        return simPresent && functionality == 1 && operatorMode != DEREGISTERED;
    }
    bool isPacketRegistered() const { return isRegistered() && isAttached; }

    // "ME" or "SM"; null for another.
    Storage *findStorage(std::string_view name);

    bool echoes() const { return settings.echo || alwaysEchoes; }
    bool offers(std::string_view charset) const;
    Settings factorySettings() const;

    // As after power-on: what is stored stays, settings do not.
    void restart();

    // As after a brown-out: even +CPMS is forgotten, and the line that is under way. `announcement`
    // is said unasked; empty for none.
    void forgetSettings(const std::string &announcement);
};

} // namespace smspb::simmodem

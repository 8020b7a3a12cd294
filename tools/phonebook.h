// The phonebook of the SIM or of the modem: selected, measured, read, written, and left as it was
// found. What fails throws a Failure that carries the modem's own words.
#ifndef SMSPB_TOOLS_PHONEBOOK_H
#define SMSPB_TOOLS_PHONEBOOK_H

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"
#include "tools/contact.h"
#include "tools/failure.h"
#include "tools/modem.h"
#include "tools/output.h"
#include "tools/signals.h"

namespace smspb::cli {

// Gives the modem's phonebook storage its former choice back: other processes read and write names
// too. Throws when nobody serves the modem, or it does not answer.
class KeptPhonebook {
public:
    KeptPhonebook();
    ~KeptPhonebook();
    KeptPhonebook(const KeptPhonebook &) = delete;
    KeptPhonebook &operator=(const KeptPhonebook &) = delete;

private:
    std::string former_;
};

// Has the modem number its errors meanwhile (TS 27.007, 9.1): without their numbers an empty
// location cannot be told from a broken SIM.
class NumberedErrors {
public:
    NumberedErrors();
    ~NumberedErrors();
    NumberedErrors(const NumberedErrors &) = delete;
    NumberedErrors &operator=(const NumberedErrors &) = delete;

private:
    std::string former_; // empty when they are numbered already, or the modem does not say
};

// Signals that ask for the end wait for the end of a step; when the object goes, the process ends
// by the one that came.
class Interruption {
public:
    Interruption() = default;
    ~Interruption();
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    // Throws a Failure when a signal came.
    void check();
    bool isPending() const { return signal_ != 0; }

private:
    SignalWatch watch_;
    int signal_ = 0;
};

// Selects the storage, and the character set UCS2, for as long as it lives.
class Phonebook {
public:
    explicit Phonebook(const std::string &storage); // "sm", "me"; empty for the SIM's

    std::string_view name() const { return name_; } // "SM", "ME"
    u32 used() const { return used_; }
    u32 total() const { return total_; }
    u32 free() const { return total_ > used_ ? total_ - used_ : 0; }
    const ContactLimits &limits() const { return limits_; }

    // Locations are numbered from 1. Beyond the last one that the library reads there may be more.
    u32 lastIndex() const;
    void checkIndex(u32 index) const; // throws for a location that is none

    // Nothing for an empty location.
    std::optional<Contact> read(u32 index);

    // Whether the location is taken, also by an entry that makes no sense.
    bool holds(u32 index);

    // All entries, in order. One that makes no sense is left out, and its location told in
    // `unreadable`.
    struct Entries {
        std::vector<Contact> contacts;
        std::vector<u32> unreadable;
    };
    Entries readAll(const Console &console);

    // Replaces what is at the contact's index.
    void write(const Contact &contact);

    // Clears at most ERASED_MAX locations with one command; they may be empty. A Failure tells
    // which of them were cleared before.
    static constexpr std::size_t ERASED_MAX = 40;
    void erase(std::span<const u32> indexes);

    // Whether a signal ended the last call: nobody else will say what was done till then.
    bool isInterrupted() const { return interruption_.isPending(); }

    // Asks for the fill again.
    void measure();

private:
    Interruption interruption_;
    KeptPhonebook keptPhonebook_;
    KeptCharset keptCharset_;
    NumberedErrors numberedErrors_;
    u32 storage_;
    std::string_view name_;
    u32 used_ = 0, total_ = 0;
    ContactLimits limits_;
};

} // namespace smspb::cli

#endif

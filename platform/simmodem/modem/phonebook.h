// The phonebooks: numbered places, from 1, each empty or with an entry (TS 27.007, 8.11 to 8.14).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace smspb::simmodem {

struct Contact {
    std::string number; // as it was written
    unsigned type;      // of address: 145 international, 129 otherwise
    std::u16string name;

    bool operator==(const Contact &) const = default;
};

struct PhonebookLimits {
    std::size_t numberMax = 20; // characters, "+" not counted
    std::size_t nameMax = 18;   // units
};

class Phonebook {
public:
    Phonebook(std::string name, std::size_t size, bool isWritable = true)
        : name_(std::move(name)), isWritable_(isWritable), places_(size) {}

    const std::string &name() const { return name_; }
    bool isWritable() const { return isWritable_; } // by +CPBW
    std::size_t size() const { return places_.size(); }
    std::size_t used() const;
    bool hasPlace(std::size_t index) const { return index >= 1 && index <= places_.size(); }

    // Null for an empty place and for one that does not exist.
    const Contact *find(std::size_t index) const;

    // The first empty place; nothing when full.
    std::optional<std::size_t> freePlace() const;

    // Into a place that exists, whatever it holds; nothing empties it.
    void put(std::size_t index, std::optional<Contact> contact) {
        places_.at(index - 1) = std::move(contact);
    }

    bool operator==(const Phonebook &) const = default;

private:
    std::string name_;
    bool isWritable_;
    std::vector<std::optional<Contact>> places_;
};

// Those of +CPBS: "SM" and "ME" first, then own and emergency numbers and the lists of calls.
std::vector<Phonebook> makePhonebooks(std::size_t smSize, std::size_t meSize,
                                      const std::string &ownNumber);

// Of address (TS 24.008, 10.5.4.7): 145 with "+", 129 otherwise.
unsigned typeOfNumber(std::string_view number);

} // namespace smspb::simmodem

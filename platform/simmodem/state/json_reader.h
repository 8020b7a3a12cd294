// A document of JSON read with errors that say where in it something is wrong:
// "storages.SM[2].pdu".
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

namespace smspb::simmodem {

using OrderedJson = nlohmann::ordered_json;

// Throws std::invalid_argument for what is no JSON, and for an object with a name twice.
OrderedJson parseDocument(std::string_view text);

// A value and where it stands. Lives no longer than the document.
class JsonReader {
public:
    explicit JsonReader(const OrderedJson &json, std::string where = {})
        : json_(json), where_(std::move(where)) {}

    // Throws std::invalid_argument: where it is, and what is wrong with it.
    [[noreturn]] void refuse(const std::string &what) const;

    // Each throws when it is something else.
    std::uint64_t number(std::uint64_t low, std::uint64_t high) const;
    std::int64_t signedNumber(std::int64_t low, std::int64_t high) const;
    bool flag() const;
    std::string text(std::size_t octetsMax) const;

    // What it may have; another name is refused.
    void expectNames(std::initializer_list<std::string_view> names) const;
    // Calls `then` with the member, when there is one.
    void ifHas(const char *name, const std::function<void(const JsonReader &)> &then) const;
    JsonReader member(const char *name) const; // must be there
    void eachMember(const std::function<void(const std::string &, const JsonReader &)> &then) const;
    void eachElement(const std::function<void(std::size_t, const JsonReader &)> &then) const;
    std::size_t elements() const; // of a list

private:
    JsonReader within(const std::string &name, const OrderedJson &json) const;
    const OrderedJson &json_;
    std::string where_;
};

} // namespace smspb::simmodem

#include "platform/simmodem/state/json_reader.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <vector>

namespace smspb::simmodem {
namespace {

// Behind the library's own name of the error.
std::string withoutTag(std::string text) {
    const std::size_t end = text.find("] ");
    return end == std::string::npos ? text : text.substr(end + 2);
}

// Of two values under one name the reader would see one.
class NameCheck {
public:
    bool operator()(OrderedJson::parse_event_t event, const OrderedJson &parsed) {
        using Event = OrderedJson::parse_event_t;
        if (event == Event::object_start) { names_.emplace_back(); }
        if (event == Event::object_end) { names_.pop_back(); }
        if (event == Event::key && !names_.back().insert(parsed.get<std::string>()).second) {
            throw std::invalid_argument("\"" + parsed.get<std::string>() +
                                        "\" stands twice in one object");
        }
        return true;
    }

private:
    std::vector<std::set<std::string>> names_;
};

} // namespace

OrderedJson parseDocument(std::string_view text) {
    NameCheck check;
    try {
        return OrderedJson::parse(text,
                                  [&check](int, OrderedJson::parse_event_t event,
                                           OrderedJson &parsed) { return check(event, parsed); });
    } catch (const OrderedJson::exception &error) {
        throw std::invalid_argument("no JSON: " + withoutTag(error.what()));
    }
}

void JsonReader::refuse(const std::string &what) const {
    throw std::invalid_argument((where_.empty() ? "the document" : where_) + " " + what);
}

std::uint64_t JsonReader::number(std::uint64_t low, std::uint64_t high) const {
    const bool good = json_.is_number_unsigned() && json_.get<std::uint64_t>() >= low &&
                      json_.get<std::uint64_t>() <= high;
    if (!good) {
        refuse("is a number from " + std::to_string(low) + " to " + std::to_string(high));
    }
    return json_.get<std::uint64_t>();
}

std::int64_t JsonReader::signedNumber(std::int64_t low, std::int64_t high) const {
    const bool fits = json_.is_number_integer() &&
                      (!json_.is_number_unsigned() ||
                       json_.get<std::uint64_t>() <= static_cast<std::uint64_t>(high));
    if (!fits || json_.get<std::int64_t>() < low || json_.get<std::int64_t>() > high) {
        refuse("is a number from " + std::to_string(low) + " to " + std::to_string(high));
    }
    return json_.get<std::int64_t>();
}

bool JsonReader::flag() const {
    if (!json_.is_boolean()) { refuse("is true or false"); }
    return json_.get<bool>();
}

std::string JsonReader::text(std::size_t octetsMax) const {
    if (!json_.is_string()) { refuse("is a text"); }
    auto text = json_.get<std::string>();
    if (text.size() > octetsMax) {
        refuse("is longer than " + std::to_string(octetsMax) + " octets");
    }
    return text;
}

void JsonReader::expectNames(std::initializer_list<std::string_view> names) const {
    eachMember([&](const std::string &name, const JsonReader &member) {
        if (std::find(names.begin(), names.end(), name) != names.end()) { return; }
        std::string known;
        for (const std::string_view each : names) {
            known += (known.empty() ? "" : ", ") + std::string(each);
        }
        member.refuse("is not known; there are " + known);
    });
}

void JsonReader::ifHas(const char *name,
                       const std::function<void(const JsonReader &)> &then) const {
    if (!json_.is_object()) { refuse("is an object"); }
    const auto found = json_.find(name);
    if (found != json_.end()) { then(within(name, *found)); }
}

JsonReader JsonReader::member(const char *name) const {
    if (!json_.is_object()) { refuse("is an object"); }
    const auto found = json_.find(name);
    if (found == json_.end()) { refuse("lacks \"" + std::string(name) + "\""); }
    return within(name, *found);
}

void JsonReader::eachMember(
    const std::function<void(const std::string &, const JsonReader &)> &then) const {
    if (!json_.is_object()) { refuse("is an object"); }
    for (const auto &[name, value] : json_.items()) { then(name, within(name, value)); }
}

void JsonReader::eachElement(
    const std::function<void(std::size_t, const JsonReader &)> &then) const {
    for (std::size_t i = 0; i < elements(); i++) {
        then(i, JsonReader(json_[i], where_ + "[" + std::to_string(i) + "]"));
    }
}

std::size_t JsonReader::elements() const {
    if (!json_.is_array()) { refuse("is a list"); }
    return json_.size();
}

JsonReader JsonReader::within(const std::string &name, const OrderedJson &json) const {
    return JsonReader(json, where_.empty() ? name : where_ + "." + name);
}

} // namespace smspb::simmodem

// send, save, read, inbox, delete.
//
// SendSMS, SaveSMS and getSMSbyindex say only that the modem refused. Here the same steps are taken
// one by one (compose, hand over each segment, read, decode), so that a failure names its segment
// and carries the modem's own error, and a success the references that status reports come with.
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>

#include <fmt/format.h>

#include "atlib/CSMS.h"
#include "atlib/USBModem.h"
#include "tools/commands.h"
#include "tools/compose.h"
#include "tools/malloced.h"
#include "tools/modem.h"
#include "tools/sent_record.h"
#include "tools/stored.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr u32 TRANSFER_WAIT_MS = 35000; // as the library's own send and save
constexpr char FINAL_RESULTS[4][31] = {"OK", "ERROR", "+CMS ERROR:", "+CME ERROR:"};

// TS 27.005, <stat>, as the store request carries it.
constexpr u32 STORED_UNSENT = 2, STORED_SENT = 3;

// Hands one segment over; gives the reply, or null.
using HandOver = std::function<void(const SmsSegment &segment, char **reply)>;

// The number of a "+CMGS: 12" or "+CMGW: 3" line.
std::optional<u32> numberBehind(std::string_view reply, std::string_view key) {
    const std::size_t start = reply.find(key);
    if (start == reply.npos) { return std::nullopt; }
    reply.remove_prefix(start + key.size());
    u32 number = 0;
    const auto [end, error] = std::from_chars(reply.data(), reply.data() + reply.size(), number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

struct Transfer {
    std::string_view deed, done; // "send", "sent"
    std::string_view key;        // of the line with the number
    HandOver handOver;
    // Told of each segment that is done, with its number if the modem gave one.
    std::function<void(std::size_t segment, std::optional<u32> number)> note = {};
};

std::optional<u32> transferSegment(const Transfer &transfer, const SmsSegment &segment,
                                   const std::string &what) {
    char *block = nullptr;
    transfer.handOver(segment, &block);
    const Malloced<char> reply(block);
    if (!reply) { throw noAnswer(what, fmt::format("; it may be {} all the same", transfer.done)); }
    if (const auto error = errorOf(reply.get())) { throw refusal(*error, what); }
    return numberBehind(reply.get(), transfer.key);
}

// What a segment's failure means for the whole message.
Failure partly(Failure failure, const Transfer &transfer, std::size_t done, std::size_t total) {
    if (done == 0) { return failure; }
    Failure whole(
        Exit::IN_PART,
        fmt::format("{} ({} of {} segments {})", failure.what(), done, total, transfer.done),
        failure.hint);
    whole.status = failure.status;
    whole.modem = failure.modem;
    return whole;
}

// The numbers that the modem gave the segments; nothing for one that it gave none.
std::vector<std::optional<u32>> transferAll(const Console &console, const Transfer &transfer,
                                            const std::vector<SmsSegment> &segments) {
    std::vector<std::optional<u32>> numbers;
    for (const SmsSegment &segment : segments) {
        const std::string which =
            segments.size() == 1
                ? std::string("the message")
                : fmt::format("segment {} of {}", numbers.size() + 1, segments.size());
        const std::string what = fmt::format("{} {}", transfer.deed, which);
        try {
            console.progress(what);
            numbers.push_back(transferSegment(transfer, segment, what));
            if (transfer.note) { transfer.note(numbers.size(), numbers.back()); }
        } catch (const Failure &failure) {
            Failure whole = partly(failure, transfer, numbers.size(), segments.size());
            whole.completed = numbers;
            throw whole;
        }
    }
    console.progress("");
    return numbers;
}

Json toJson(const std::vector<std::optional<u32>> &numbers) {
    Json json = Json::array();
    for (const auto &number : numbers) { json.push_back(number ? Json(*number) : Json()); }
    return json;
}

// "12, 13" or "201-255, 0-144", in the order given; "?" for a number that is not known.
std::string listed(const std::vector<std::optional<u32>> &numbers) {
    static constexpr std::size_t SHORTENED = 3;
    std::string text;
    for (std::size_t first = 0; first < numbers.size();) {
        std::size_t next = first + 1;
        while (next < numbers.size() && numbers[first] &&
               numbers[next] == *numbers[first] + (next - first)) {
            next++;
        }
        if (next - first < SHORTENED) { next = first + 1; }
        text += text.empty() ? "" : ", ";
        text += numbers[first] ? std::to_string(*numbers[first]) : "?";
        if (next - first > 1) { text += fmt::format("-{}", *numbers[next - 1]); }
        first = next;
    }
    return text;
}

Json planned(const Number &number, const Plan &plan, bool report) {
    Json json = {
        {"number", number.text}
    };
    json.update(toJson(plan));
    json["report_requested"] = report;
    return json;
}

void noteReplacedBlanks(const Console &console, const Plan &plan) {
    if (plan.blanksReplaced == 0) { return; }
    console.note(counted(plan.blanksReplaced, "no-break space") +
                 " went as blank: the GSM alphabet has none");
}

void sayPlan(const Console &console, const Number &number, const Plan &plan, bool report) {
    Fields fields;
    fields.add("to", number.text);
    if (report) { fields.add("report", "requested"); }
    fields.append(fieldsOf(plan));
    console.show(fields);
    console.say("nothing was sent");
    Json json = planned(number, plan, report);
    json["dry_run"] = true;
    console.document(json);
}

// Reads one place; nothing when it is empty. Modems call an empty place by several errors, so
// `refused` keeps the last one for the caller to judge.
std::optional<Stored> readPlace(u32 index, std::optional<ModemError> &refused) {
    const std::string reply =
        run(fmt::format("AT+CMGR={}", index), fmt::format("read message {}", index));
    if (auto error = errorOf(reply)) {
        refused = std::move(error);
        return std::nullopt;
    }
    return storedFrom(reply, index);
}

// The places that are used beyond `last`, from a modem that tells them: "+CMGD: (1,4,7-9),(0-4)".
std::vector<u32> usedPlacesBeyond(u32 last) {
    static constexpr std::string_view KEY = "+CMGD: (";
    const std::string reply = run("AT+CMGD=?", "list the places that are used");
    const std::size_t start = reply.find(KEY);
    const std::size_t end = reply.find(')');
    if (start == reply.npos || end == reply.npos || end < start + KEY.size()) { return {}; }
    std::vector<u32> places;
    try {
        places = parseIndexes(reply.substr(start + KEY.size(), end - start - KEY.size()));
    } catch (const Failure &) { return {}; } // none, or in a form of its own
    std::erase_if(places, [last](u32 place) { return place <= last; });
    return places;
}

// Indexes begin with 0 or 1, as the modem likes it; with gaps they go beyond the number of places.
// Stops when everything that is held was found.
std::vector<Stored> readAll(const Console &console, Counts counts) {
    std::vector<Stored> found;
    std::optional<ModemError> refused;
    for (u32 index = 0; index <= counts.total && found.size() < counts.used; index++) {
        console.progress(fmt::format("reading, {} of {}", found.size(), counts.used));
        if (auto stored = readPlace(index, refused)) { found.push_back(*std::move(stored)); }
    }
    if (found.size() < counts.used) {
        for (const u32 index : usedPlacesBeyond(counts.total)) {
            if (auto stored = readPlace(index, refused)) { found.push_back(*std::move(stored)); }
        }
    }
    console.progress("");
    if (found.empty() && counts.used != 0 && refused && !meansEmpty(*refused)) {
        throw refusal(*refused, "read the messages");
    }
    if (found.size() < counts.used) {
        console.note(fmt::format("{} of {} messages could not be read{}",
                                 counts.used - found.size(), counts.used,
                                 refused ? ": " + describe(*refused) : ""));
    }
    return found;
}

std::vector<u32> indexesOf(const Joined &joined) {
    std::vector<u32> indexes;
    for (const Stored &part : joined.parts) { indexes.push_back(part.index); }
    return indexes;
}

// New as long as one part is.
u32 statusOf(const Joined &joined) {
    u32 status = joined.parts.front().status;
    for (const Stored &part : joined.parts) { status = std::min(status, part.status); }
    return status;
}

std::vector<std::string> tableRow(const Joined &joined) {
    const auto &message = joined.parts.front().message;
    const std::string mark = joined.isComplete() ? ""
                                                 : fmt::format("[incomplete, {} of {} parts] ",
                                                               joined.parts.size(), joined.total);
    return {indexRanges(indexesOf(joined)), std::string(statusName(statusOf(joined))),
            message ? message->number : "?", message ? shortTime(message->time) : "",
            mark + textOf(joined)};
}

Json toJson(const Joined &joined) {
    const Stored &first = joined.parts.front();
    Json json = {
        {"indexes",            indexesOf(joined)},
        { "status", statusName(statusOf(joined))}
    };
    if (!first.message) {
        json["error"] = first.problem;
        json["pdu"] = first.pdu;
        return json;
    }
    json.update(cli::toJson(*first.message));
    json["complete"] = joined.isComplete();
    if (!first.message->part) { return json; }
    json.erase("part");
    json.erase("header");
    json["parts"] = {
        {"reference", first.message->part->reference},
        {    "total",                   joined.total},
        {  "present",                  Json::array()}
    };
    for (const Stored &part : joined.parts) {
        json["parts"]["present"].push_back(part.message->part->number);
    }
    json[first.message->data.empty() ? "text" : "data"] = textOf(joined);
    return json;
}

void showInbox(const Console &console, u32 storage, Counts counts,
               const std::vector<Joined> &messages) {
    Table table{
        {"INDEX", "STATUS", "NUMBER", "TIME", "TEXT"},
        {          }
    };
    Json json = {
        { "storage", storageName(storage)},
        {    "used",          counts.used},
        {   "total",         counts.total},
        {"messages",        Json::array()}
    };
    for (const Joined &joined : messages) {
        table.rows.push_back(tableRow(joined));
        json["messages"].push_back(toJson(joined));
    }
    if (!messages.empty()) { console.show(table); }
    console.say(fmt::format("{}{} in {}, {} of {} places used", messages.empty() ? "" : "\n",
                            counted(messages.size(), "message"), storageName(storage), counts.used,
                            counts.total));
    console.document(json);
}

u32 singleIndex(const StorageOptions &options) {
    const std::vector<u32> indexes = parseIndexes(options.indexes.front());
    if (indexes.size() == 1) { return indexes.front(); }
    throw Failure(Exit::USAGE,
                  fmt::format("INDEX \"{}\" names {} messages; read shows one",
                              options.indexes.front(), indexes.size()),
                  "smspb inbox shows all");
}

void deleteOne(u32 index, u32 storage) {
    const u32 status = deleteByStoreId(index, storage);
    if (status == SMS_OK) { return; }
    Failure failure = explained(status, fmt::format("delete message {}", index),
                                fmt::format("AT+CMGD={}", index));
    if (failure.modem && meansEmpty(*failure.modem)) { failure.exit = Exit::NO_MESSAGE; }
    throw failure;
}

} // namespace

void send(const Console &console, const ComposeOptions &options) {
    const Number number = parseNumber(options.number, "NUMBER");
    const Plan plan = compose(number, readText(options.text), options.report, drawReference());
    if (options.dryRun) { return sayPlan(console, number, plan, options.report); }
    requireManager();
    const Transfer transfer{
        "send", "sent", "+CMGS: ",
        [](const SmsSegment &segment, char **reply) {
            ExecAT2(segment.pdu, FINAL_RESULTS, std::size(FINAL_RESULTS), reply, TRANSFER_WAIT_MS);
        },
        [&](std::size_t segment, std::optional<u32> reference) {
            if (!options.report || !reference) { return; }
            recordSent({std::time(nullptr), *reference, static_cast<unsigned>(segment),
                        static_cast<unsigned>(plan.segments.size()), number.text});
        }};
    const auto references = transferAll(console, transfer, plan.segments);
    noteReplacedBlanks(console, plan);
    console.say(fmt::format(
        "sent to {}: {}{} in {}, {} {}", number.text, counted(references.size(), "segment"),
        segmentSizes(plan), plan.isUcs2 ? "UCS-2" : "GSM 7-bit",
        references.size() == 1 ? "reference" : "references", listed(references)));
    Json json = planned(number, plan, options.report);
    json["sent"] = references.size();
    json["references"] = toJson(references);
    console.document(json);
}

void save(const Console &console, const ComposeOptions &options) {
    const Number number = parseNumber(options.number, "NUMBER");
    const Plan plan = compose(number, readText(options.text), options.report, drawReference());
    requireManager();
    const u32 status = options.markSent ? STORED_SENT : STORED_UNSENT;
    const Transfer transfer{"save", "saved",
                            "+CMGW: ", [status](const SmsSegment &segment, char **reply) {
                                ExecAT3(segment.pdu, status, FINAL_RESULTS,
                                        std::size(FINAL_RESULTS), reply, TRANSFER_WAIT_MS);
                            }};
    const auto indexes = transferAll(console, transfer, plan.segments);
    const auto use = storageUse();
    const std::string where = use ? use->writing : "";
    noteReplacedBlanks(console, plan);
    console.say(fmt::format("saved{}{} at {} {} ({})", where.empty() ? "" : " in ", where,
                            indexes.size() == 1 ? "index" : "indexes", listed(indexes),
                            statusName(status)));
    Json json = planned(number, plan, options.report);
    if (!where.empty()) { json["storage"] = where; }
    json["status"] = statusName(status);
    json["indexes"] = toJson(indexes);
    console.document(json);
}

void read(const Console &console, const StorageOptions &options) {
    const u32 index = singleIndex(options), storage = storageCode(options.storage);
    requireManager();
    const SelectedStorage selected(storage);
    std::optional<ModemError> refused;
    const auto stored = readPlace(index, refused);
    if (!stored && (!refused || meansEmpty(*refused))) {
        Failure failure(Exit::NO_MESSAGE,
                        fmt::format("there is no message {} in {}", index, storageName(storage)),
                        "smspb inbox shows what there is");
        failure.modem = refused;
        throw failure;
    }
    if (!stored) { throw refusal(*refused, fmt::format("read message {}", index)); }
    if (!stored->message) {
        throw Failure(Exit::BAD_PDU, fmt::format("message {}: {}", index, stored->problem),
                      fmt::format("its PDU is {}", stored->pdu));
    }
    Fields fields;
    fields.add("index", fmt::format("{} in {}, {}", index, storageName(storage),
                                    statusName(stored->status)));
    fields.append(fieldsOf(*stored->message));
    console.show(fields);
    const std::string content = contentOf(*stored->message);
    if (!content.empty()) { console.say("\n" + content); }
    Json json = {
        {  "index",                      index},
        {"storage",       storageName(storage)},
        { "status", statusName(stored->status)}
    };
    json.update(cli::toJson(*stored->message));
    console.document(json);
}

void inbox(const Console &console, const StorageOptions &options) {
    const u32 storage = storageCode(options.storage);
    requireManager();
    const SelectedStorage selected(storage);
    std::vector<Stored> stored = readAll(console, selected.counts());
    showInbox(console, storage, selected.counts(), join(std::move(stored)));
}

void remove(const Console &console, const StorageOptions &options) {
    const u32 storage = storageCode(options.storage);
    std::vector<u32> indexes;
    for (const std::string &text : options.indexes) {
        const std::vector<u32> some = parseIndexes(text);
        indexes.insert(indexes.end(), some.begin(), some.end());
    }
    requireManager();
    const SelectedStorage selected(storage);
    std::vector<u32> deleted;
    for (const u32 index : indexes) {
        try {
            console.progress(fmt::format("deleting {}", index));
            deleteOne(index, storage);
            deleted.push_back(index);
        } catch (Failure &failure) {
            if (!deleted.empty()) { failure.exit = Exit::IN_PART; }
            failure.completed.assign(deleted.begin(), deleted.end());
            throw;
        }
    }
    console.progress("");
    console.say(fmt::format("deleted {} from {}", indexRanges(deleted), storageName(storage)));
    console.document({
        {"storage", storageName(storage)},
        {"deleted",              deleted}
    });
}

} // namespace smspb::cli

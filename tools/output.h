// What a command prints: lines and tables for people, one JSON document with --json, and progress
// on standard error when that is a terminal. Everything that came from outside goes through
// printable() here, so no command can forget it.
#ifndef SMSPB_TOOLS_OUTPUT_H
#define SMSPB_TOOLS_OUTPUT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/failure.h"

namespace smspb::cli {

using Json = nlohmann::ordered_json;

// The last column takes what the terminal leaves and is wrapped there.
struct Table {
    std::vector<std::string> heads;
    std::vector<std::vector<std::string>> rows;
};

// The table in lines. `columns`: of the terminal; 0 for no terminal, where every row is one line.
std::string layOut(const Table &table, std::size_t columns);

// The document with every character escaped that a terminal obeys.
std::string serialized(const Json &document, bool oneLine = false);

// Names and values, one a line, the values below each other.
class Fields {
public:
    void add(std::string name, std::string value) {
        rows_.push_back({std::move(name), std::move(value)});
    }
    void append(const Fields &others) {
        rows_.insert(rows_.end(), others.rows_.begin(), others.rows_.end());
    }
    std::string layOut() const;

private:
    struct Row {
        std::string name, value;
    };
    std::vector<Row> rows_;
};

class Console {
public:
    explicit Console(bool json) : json_(json) {}

    bool json() const { return json_; }

    // Standard output: lines and tables for people, nothing with --json; the document only with it.
    void say(std::string_view text) const;
    void show(const Table &table) const;
    void show(const Fields &fields) const;
    void document(const Json &document) const;

    // From now on each document takes one line: for a command that gives several.
    void keepDocumentsToOneLine() const { oneLine_ = true; }

    // A remark on standard error that does not spoil the success.
    void note(std::string_view text) const;

    // What goes on, on one line of standard error that the next one replaces; "" takes it away.
    void progress(std::string_view text) const;

    // What went wrong and what to do next, on standard error; fail() with --json as a document too.
    void complain(const Failure &failure) const;
    void fail(const Failure &failure) const;

private:
    bool json_;
    mutable bool showsProgress_ = false;
    mutable bool oneLine_ = false;
};

} // namespace smspb::cli

#endif

#pragma once

#include <algorithm>
#include <stdexcept>

#include "dump/compose.h"
#include "dump/json.h"
#include "dump/read.h"
#include "fuzz/fuzz.h"

using Entries = std::vector<ecu::lapi::pb::SystemParameterEntry>;

inline std::string dump_of(const Entries& entries) {
    std::string text;
    for (const auto& entry : entries) text += dump::compose(entry.otaid(), entry);
    return text;
}

inline std::string json_of(const Entries& entries) {
    dump::JsonLines json;
    std::string text;
    for (const auto& entry : entries) {
        json.begin();
        json.number("otaid", entry.otaid());
        json.fields(entry);
        json.end();
        text += json.line();
    }
    return text;
}

/// What is read from a text that arrives in pieces, the first ones small.
inline Entries entries_of(const std::string& text) {
    std::size_t done = 0;
    const auto source = [&](char* buffer, std::size_t size) {
        const std::size_t count = text.copy(buffer, std::min(size, 1 + done), done);
        done += count;
        return count;
    };
    return dump::read_parameters(source, "fuzz");
}

/// Nothing when the text is refused.
inline Entries entries_if_accepted(const std::string& text) try {
    return entries_of(text);
} catch (const std::runtime_error&) {
    return {};
}

/// Texts that say the same twice name each once.
inline void require_each_once(const Entries& expected, const std::string& text) {
    const Entries got = entries_of(text + text);
    require(std::equal(
        got.begin(), got.end(), expected.begin(), expected.end(),
        [](const auto& one, const auto& other) { return one.SerializeAsString() == other.SerializeAsString(); }));
}

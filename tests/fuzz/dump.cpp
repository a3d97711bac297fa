// Parameters that are accepted, from a dump or from JSON Lines, come back from both, as any value
// does. In which pieces a text arrives makes no difference.
#include <algorithm>
#include <stdexcept>

#include "dump/compose.h"
#include "dump/json_record.h"
#include "dump/read.h"
#include "fuzz/fuzz.h"

namespace {

using Entries = std::vector<ecu::lapi::pb::SystemParameterEntry>;

/// What is read from a text that arrives in pieces, or why it is refused.
std::pair<Entries, std::string> read(const std::string& text, std::size_t piece) try {
    std::size_t done = 0;
    const auto source = [&](char* buffer, std::size_t size) {
        const std::size_t count = text.copy(buffer, std::min(size, piece), done);
        done += count;
        return count;
    };
    return {dump::read_parameters(source, "fuzz"), ""};
} catch (const std::runtime_error& error) {
    return {{}, error.what()};
}

bool are_same(const Entries& some, const Entries& others) {
    const auto is_same = [](const auto& one, const auto& other) {
        return one.SerializeAsString() == other.SerializeAsString();
    };
    return std::equal(some.begin(), some.end(), others.begin(), others.end(), is_same);
}

/// Texts that say the same twice name each once.
void require_each_once(const Entries& expected, const std::string& text) {
    require(are_same(read(text + text, SIZE_MAX).first, expected));
}

void check(Entries entries) {
    std::string blocks, lines;
    dump::JsonLines json;
    for (auto& entry : entries) {
        entry.set_did(entry.did());
        entry.set_xcpid(entry.xcpid());
        entry.set_data(entry.data());
        blocks += dump::compose(entry.otaid(), entry);
        json.begin();
        json.number("otaid", entry.otaid());
        dump::add_fields(json, entry);
        json.end();
        lines += json.line();
    }
    require_each_once(entries, blocks);
    require_each_once(entries, lines);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    const auto [entries, error] = read(text, SIZE_MAX);
    const auto in_bytes = read(text, 1);
    require(are_same(in_bytes.first, entries) && in_bytes.second == error);
    check(entries);
    Entries of_value(1);
    of_value[0].set_otaid(static_cast<std::uint32_t>(size));
    of_value[0].set_data(text);
    check(of_value);
    return 0;
}

// A dump that is taken says of its records what they say, and any value comes back from its dump.
#include <algorithm>
#include <stdexcept>

#include "dump/compose.h"
#include "dump/parse.h"
#include "fuzz/fuzz.h"

namespace {

using Entries = std::vector<ecu::lapi::pb::SystemParameterEntry>;

std::string composed(const Entries& entries) {
    std::string text;
    for (const auto& entry : entries) text += dump::compose(entry.otaid(), entry);
    return text;
}

Entries entries_of(const std::string& dump) try {
    return dump::parse(dump, "fuzz");
} catch (const std::runtime_error&) {
    return {};  // refused
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Entries of_value(1);
    of_value[0].set_otaid(static_cast<std::uint32_t>(size));
    of_value[0].set_did(0xf190);
    of_value[0].set_xcpid(10);
    of_value[0].set_data(data, size);
    for (const auto& entries : {of_value, entries_of({data, data + size})}) {
        const std::string text = composed(entries);
        const auto same = [](const auto& one, const auto& other) {
            return one.SerializeAsString() == other.SerializeAsString();
        };
        const auto again = entries_of(text + text);
        require(std::equal(again.begin(), again.end(), entries.begin(), entries.end(), same));
    }
    return 0;
}

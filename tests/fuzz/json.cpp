// JSON Lines that are accepted say of their records what they say; JSON of our own shows all fields.
#include "fuzz/parameters.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The first line makes the rest JSON, and is nobody else's parameter.
    const std::string first = "{\"otaid\":4294967295,\"text\":\"the first line\"}\n";
    Entries entries = entries_if_accepted(first + std::string(data, data + size));
    for (auto& entry : entries) {
        entry.set_did(entry.did());
        entry.set_xcpid(entry.xcpid());
        entry.set_data(entry.data());
    }
    require_each_once(entries, json_of(entries));
    require_each_once(entries, dump_of(entries));
    return 0;
}

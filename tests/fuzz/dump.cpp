// A dump that is taken must come back from its records: what it says is what is stored.
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "dump/compose.h"
#include "dump/parse.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        std::string again;
        const auto entries = dump::parse(text, "fuzz");
        for (const auto& entry : entries) again += dump::compose(entry.otaid(), entry);
        const auto reparsed = dump::parse(again, "fuzz");
        if (reparsed.size() != entries.size()) std::abort();
        for (std::size_t at = 0; at < entries.size(); ++at) {
            if (reparsed[at].SerializeAsString() != entries[at].SerializeAsString()) std::abort();
        }
    } catch (const std::runtime_error&) {
        return 0;  // refused
    }
    return 0;
}

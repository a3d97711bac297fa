// A dump that is taken must come back from its records: what it says is what is stored.
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "commands/print_sysparam.h"
#include "unit/dump_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        std::string again;
        const auto entries = unit::parse_dump(text, "fuzz");
        for (const auto& entry : entries) again += commands::compose_sysparam(entry.otaid(), entry);
        const auto reparsed = unit::parse_dump(again, "fuzz");
        if (reparsed.size() != entries.size()) std::abort();
        for (std::size_t at = 0; at < entries.size(); ++at) {
            if (reparsed[at].SerializeAsString() != entries[at].SerializeAsString()) std::abort();
        }
    } catch (const std::runtime_error&) {
        return 0;  // refused
    }
    return 0;
}

// A dump that is accepted says of its records what they say, and any value comes back from its dump.
#include "fuzz/parameters.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    Entries of_value(1);
    of_value[0].set_otaid(static_cast<std::uint32_t>(size));
    of_value[0].set_did(0xf190);
    of_value[0].set_xcpid(10);
    of_value[0].set_data(text);
    require_each_once(of_value, dump_of(of_value));
    require_each_once(of_value, json_of(of_value));
    if (text.find('{') != text.find_first_not_of(" \t\r\n")) {
        const Entries entries = entries_if_accepted(text);
        require_each_once(entries, dump_of(entries));
    }
    return 0;
}

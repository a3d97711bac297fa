#include "commands/print_sysparam.h"

#include <iostream>

#include "dump/compose.h"

namespace commands {

void print_sysparam(const std::uint32_t& otaid, const ecu::lapi::pb::SystemParameterEntry& entry) {
    static thread_local std::string buffer;
    const std::size_t size = dump::compose_into(buffer, otaid, entry);
    std::cout.write(buffer.data(), static_cast<std::streamsize>(size));
}

}  // namespace commands

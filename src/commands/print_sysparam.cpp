#include "commands/print_sysparam.h"

#include <iostream>
#include <string>

#include "dump/compose.h"

namespace commands {

void print_sysparam(const std::uint32_t& otaid, const ecu::lapi::pb::SystemParameterEntry& entry) {
    static thread_local std::string block;
    dump::compose(block, otaid, entry);
    std::cout << block;
}

}  // namespace commands

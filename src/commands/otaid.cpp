#include "commands/otaid.h"

#include <exception>
#include <iostream>

#include "program/otaid.h"

namespace commands {

std::optional<std::int32_t> otaid_of_argument(const std::string& argument) {
    try {
        return parse_otaid(argument);
    } catch (const std::exception&) {
        std::cout << "OTAID has to be a number, ignore '" << argument << "'" << std::endl;
        return std::nullopt;
    }
}

}  // namespace commands

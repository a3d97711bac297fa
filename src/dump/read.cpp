#include "dump/read.h"

#include <utility>

#include "dump/json_record.h"
#include "dump/parse.h"
#include "program/input.h"

namespace dump {

using ecu::lapi::var::ParameterMap;

ParameterMap read_parameters(Source source, const std::string& name) {
    Scanner scanner(std::move(source), name);
    const bool is_json = scanner.first_character() == '{';
    ParameterMap parameters;
    for (;;) {
        const std::size_t line = scanner.line();
        auto entry = is_json ? next_json_record(scanner) : next_block(scanner);
        if (!entry) return parameters;
        // Mostly in ascending order.
        auto& known = parameters.try_emplace(parameters.end(), entry->otaid())->second;
        if (!known.has_otaid()) {
            known = std::move(*entry);
        } else if (entry->SerializeAsString() != known.SerializeAsString()) {
            scanner.fail_at(line, std::string(is_json ? "a second object" : "a second block") +
                                      " of OTAID " + std::to_string(entry->otaid()) +
                                      " says something else");
        }
    }
}

ParameterMap read_file(const std::string& file) {
    program::Input input(file);
    const auto source = [&input](char* buffer, std::size_t size) {
        return input.read(buffer, size);
    };
    return read_parameters(source, program::input_name(file));
}

}  // namespace dump

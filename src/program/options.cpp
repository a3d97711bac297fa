#include "program/options.h"

#include <getopt.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "program/build_description.h"

namespace {

/// What getopt_long returns for the first option, were it one without a letter.
constexpr int FIRST_CODE = 0x100;

}  // namespace

OwnOption text_option(char letter, const char* name, std::string& value) {
    return {letter, name, true, [&value](const char* argument) {
                value = argument;
                return true;
            }};
}

OwnOption flag_option(char letter, const char* name, bool& value) {
    return {letter, name, false, [&value](const char*) { return value = true; }};
}

std::optional<std::vector<std::string>> parse_command_line(int argc, char** argv,
                                                           const char* program,
                                                           CommonOptions& common,
                                                           const std::vector<OwnOption>& own) {
    std::vector<OwnOption> options{
        text_option('H', "host", common.host),
        text_option('p', "port", common.port),
        text_option('l', "loglevel", common.loglevel),
        {'h', "help", false, [](const char*) { return false; }},
        {'v', "version", false,
         [program](const char*) {
             write_version(program);
             std::exit(EXIT_SUCCESS);
             return false;
         }},
    };
    options.insert(options.end(), own.begin(), own.end());

    std::string letters;
    std::vector<option> names;
    for (const auto& known : options) {
        if (known.letter != 0) letters += known.letter;
        if (known.letter != 0 && known.has_argument) letters += ':';
        const int code =
            known.letter != 0 ? known.letter : FIRST_CODE + static_cast<int>(names.size());
        names.push_back(
            {known.name, known.has_argument ? required_argument : no_argument, nullptr, code});
    }
    names.push_back({nullptr, 0, nullptr, 0});

    int code = 0;
    while ((code = getopt_long(argc, argv, letters.c_str(), names.data(), nullptr)) != -1) {
        const auto name = std::find_if(names.begin(), names.end() - 1,
                                       [code](const option& any) { return any.val == code; });
        const auto index = static_cast<std::size_t>(name - names.begin());
        if (index >= options.size() || !options[index].take(optarg)) return std::nullopt;
    }
    return std::vector<std::string>(argv + optind, argv + argc);
}

void write_version(const char* program) {
    std::cerr << program << ": " << build_description << std::endl;
}

#include "program/options.h"

#include <getopt.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "program/build_description.h"

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
        letters += known.letter;
        if (known.has_argument) letters += ':';
        names.push_back({known.name, known.has_argument ? required_argument : no_argument, nullptr,
                         known.letter});
    }
    names.push_back({nullptr, 0, nullptr, 0});

    int letter = 0;
    while ((letter = getopt_long(argc, argv, letters.c_str(), names.data(), nullptr)) != -1) {
        const auto known = std::find_if(options.begin(), options.end(),
                                        [letter](const auto& any) { return any.letter == letter; });
        if (known == options.end() || !known->take(optarg)) return std::nullopt;
    }
    return std::vector<std::string>(argv + optind, argv + argc);
}

void write_version(const char* program) {
    std::cerr << program << ": " << build_description << std::endl;
}

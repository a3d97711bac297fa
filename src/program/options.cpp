#include "program/options.h"

#include <getopt.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "program/build_description.h"

namespace program {
namespace {

/// What getopt_long returns for the first option, were it one without a letter.
constexpr int FIRST_CODE = 0x100;

constexpr std::size_t HELP_COLUMN = 25;

/// The options in the form that getopt_long takes.
struct GetoptTables {
    explicit GetoptTables(const std::vector<Option>& options) {
        for (const auto& known : options) {
            const bool has_value = known.value != nullptr;
            const int code =
                known.letter != 0 ? known.letter : FIRST_CODE + static_cast<int>(names.size());
            names.push_back(
                {known.name, has_value ? required_argument : no_argument, nullptr, code});
            if (known.letter != 0) letters.append(1, known.letter).append(has_value ? ":" : "");
        }
        names.push_back({nullptr, 0, nullptr, 0});
    }

    std::string letters = ":";  // which tells a missing value from an unknown option
    std::vector<option> names;
};

/// The option with getopt_long's code; null when there is none.
const Option* find_option(const std::vector<Option>& options, const GetoptTables& tables,
                          int code) {
    for (std::size_t i = 0; i < options.size(); ++i) {
        if (tables.names[i].val == code) return &options[i];
    }
    return nullptr;
}

/// Reports what getopt_long has refused; `known` is null unless it knew the option.
[[noreturn]] void refuse(const Option* known, const std::string& last_word) {
    if (known != nullptr) {
        throw UsageError("option --" + std::string(known->name) +
                         (known->value != nullptr ? " needs a value" : " takes no value"));
    }
    const std::string unknown = {'-', static_cast<char>(optopt)};
    throw UsageError("unknown or ambiguous option '" + (optopt != 0 ? unknown : last_word) + "'");
}

std::string help_lines(const Option& known) {
    std::string line = known.letter != 0 ? std::string("  -") + known.letter + ", --" : "      --";
    line += known.name;
    if (known.value != nullptr) line.append(" ").append(known.value);
    line.resize(std::max(line.size() + 1, HELP_COLUMN), ' ');
    for (const char* next = known.help; *next != '\0'; ++next) {
        line += *next;
        if (*next == '\n') line.append(HELP_COLUMN, ' ');
    }
    return line + '\n';
}

std::string version_line(const Help& help) {
    return std::string(help.program) + ": " + build_description + "\n";
}

void show_help(const Help& help, const std::vector<Option>& options) {
    std::cout << version_line(help) << "\nUSAGE: " << help.program << " " << help.arguments
              << "\n\n"
              << help.description << "\nOPTIONS:\n";
    for (const auto& known : options) std::cout << help_lines(known);
    std::cout << help.remarks;
}

std::vector<Option> common_options(CommonOptions& target) {
    return {
        {'H', "host", "HOST", "the broker's host, overrides the configuration", into(target.host)},
        {'p', "port", "PORT", "the broker's port, overrides the configuration", into(target.port)},
        {'l', "loglevel", "LEVEL",
         "one of EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO, DEBUG\n"
         "(default: WARNING)",
         into(target.loglevel)},
    };
}

}  // namespace

std::vector<std::string> parse_command_line(int argc, char** argv, const Help& help,
                                            std::vector<Option> options, CommonOptions* common) {
    if (common != nullptr) {
        const auto shared = common_options(*common);
        options.insert(options.end(), shared.begin(), shared.end());
    }
    options.push_back({'h', "help", nullptr, "show this help", [&](const std::string&) {
                           show_help(help, options);
                           std::exit(EXIT_SUCCESS);
                       }});
    options.push_back({'v', "version", nullptr, "show the version", [&](const std::string&) {
                           std::cout << version_line(help);
                           std::exit(EXIT_SUCCESS);
                       }});

    const GetoptTables tables(options);
    opterr = 0;
    int code = 0;
    while ((code = getopt_long(argc, argv, tables.letters.c_str(), tables.names.data(), nullptr)) !=
           -1) {
        const Option* const known = find_option(options, tables, code);
        if (known == nullptr) refuse(find_option(options, tables, optopt), argv[optind - 1]);
        const std::string value = optarg != nullptr ? optarg : "";
        // What a script expanded to nothing must not count as not given.
        if (known->value != nullptr && value.empty()) refuse(known, argv[optind - 1]);
        known->take(value);
    }
    return {argv + optind, argv + argc};
}

}  // namespace program

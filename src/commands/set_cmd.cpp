#include <iostream>
#include <optional>

#include "commands/commands.h"
#include "commands/interpretation.h"
#include "commands/otaid.h"
#include "ecu/lapi/var.h"
#include "program/sysparams.h"

namespace commands {

namespace {

constexpr std::size_t AS = 1;
// Part of the output format: this one message spells the program so.
constexpr char MISSPELT_PROGRAM[] = "korvdi";

/// The interpretation of the value behind the OTAID; nothing, and a message on standard error, when
/// there is no value or none that can be interpreted.
std::optional<Interpretation> interpretation_of(const SetCmd& command, const Arguments& args) {
    if (args.size() <= FIRST_VALUE) {
        std::cerr << "No value provided for param: '" << args.front() << "', ignore!" << std::endl;
        return std::nullopt;
    }
    const auto interpretation = parse_interpretation(args[AS]);
    if (interpretation == Interpretation::UNKNOWN) {
        std::cerr << "Set command requires a format how the data should be "
                  << "written!\n\n"
                  << command.help_text(MISSPELT_PROGRAM) << std::endl;
        return std::nullopt;
    }
    // A number that saturates is garbage that the unit must not get.
    if (interpretation == Interpretation::HEX && args[FIRST_VALUE].size() > HEX_TEXT_LIMIT) {
        std::cerr << "The hex value '" << args[FIRST_VALUE] << "' is too long, at most "
                  << HEX_TEXT_LIMIT << " characters are possible!" << std::endl;
        return std::nullopt;
    }
    return interpretation;
}

}  // namespace

bool SetCmd::execute(Client& client, const Arguments& args) const {
    const auto sysparams = program::create_sysparams(client);
    auto parameters = sysparams->get_parameters(0);
    if (args.empty()) {
        std::cerr << "Nothing to set..., you are doing it wrong!\n"
                  << "Check the help using -h" << std::endl;
        return false;
    }
    const auto otaid = otaid_of_argument(args.front());
    if (!otaid) return false;
    const auto interpretation = interpretation_of(*this, args);
    if (!interpretation) return false;

    const auto key = static_cast<std::uint32_t>(*otaid);
    auto& entry = parameters[key];
    entry.set_otaid(key);
    entry.set_data(interpret_value(*interpretation, args));
    sysparams->set_parameters(parameters);
    const auto [written, refused] = sysparams->write_parameters();
    if (!written) program::report_refused(refused);
    return written;
}

std::string SetCmd::help_text(const char* program) const {
    const std::string example = std::string("          ") + program;
    return "  set <OTAID> <AS> value\n"
           "\n"
           "     Description: \n"
           "        Set the given OTAIDs to the provided value\n"
           "\n"
           "     OTAID: \n"
           "        The OTAID which shall be set, either as hex with 0x prefix or\n"
           "        dec without prefix.\n"
           "\n"
           "     AS: \n"
           "        Specifies how the <value> shall be interpreted, available\n"
           "        interpretations: \n"
           "          s | str:\n"
           "             Read value as is, ASCII string\n"
           "          b | bytes: \n"
           "             Read values as bytes separated by space\n"
           "          h | hex:\n"
           "             Read value as hexadecimal number\n"
           "          d | dec:\n"
           "             Read value as decimal number\n"
           "\n"
           "     value: The value which shall be set. Depending on the <AS>\n"
           "            this should be a single string or bytes separated by space\n"
           "\n"
           "     Examples:\n"
           "        Set as bytes:\n" +
           example +
           " set 0x120 bytes 1b 2c 4c\n"
           "        Set as decimal number:\n" +
           example +
           " set 0x120 dec 4223\n"
           "        Set as hex number:\n" +
           example +
           " set 0x120 hex ab18\n"
           "        Set as string number:\n" +
           example + " set 0x120 str \"Hello World\"\n";
}

}  // namespace commands

#include "unit/options.h"

#include "program/otaid.h"

namespace unit {
namespace {

using program::UsageError;

constexpr program::Help HELP{
    PROGRAM_NAME, "[OPTIONS]",
    R"(Serves system parameters and the secure store from an SQLite file, through a broker.
Prints "ready" on standard output once it serves; SIGTERM and SIGINT end it.
)",
    ""};

std::vector<program::Option> own_options(Options& options) {
    using program::into;
    return {
        {'d', "db", "FILE", "the store (default: korvid-unit.db in the working directory)",
         into(options.store)},
        {'i', "import", "FILE",
         "first load parameters from FILE (\"-\": standard input): the text\n"
         "that `korvid get` prints, or JSON Lines; others in the store stay",
         into(options.import_from)},
        {0, "replace", nullptr, "with -i: the store then holds these parameters and no others",
         into(options.replace)},
        {'r', "read-only", "OTAID", "refuse writes of this parameter (may be repeated)",
         [&options](const std::string& text) {
             const auto otaid = program::parse_whole_otaid(text);
             if (!otaid) throw UsageError("'" + text + "' is not an OTAID");
             options.read_only.insert(*otaid);
         }},
        {'b', "broker", nullptr,
         "also run a broker on that port of 127.0.0.1, as long as this runs;\n"
         "of the configuration only the port counts then",
         into(options.broker)},
    };
}

}  // namespace

Options parse_options(int argc, char** argv) {
    Options options;
    const auto arguments =
        program::parse_command_line(argc, argv, HELP, own_options(options), &options.common);
    if (!arguments.empty()) throw UsageError("unexpected argument '" + arguments.front() + "'");
    if (options.replace && options.import_from.empty()) {
        throw UsageError("--replace needs --import");
    }
    if (options.store == ":memory:") {
        throw UsageError("a store in ':memory:' would lose what it has acknowledged: name a file");
    }
    std::string& host = options.common.host;
    if (options.broker && !host.empty() && host != "127.0.0.1" && host != "localhost") {
        throw UsageError("the broker of -b runs on 127.0.0.1, not on '" + host + "'");
    }
    if (options.broker) host = "127.0.0.1";
    return options;
}

}  // namespace unit

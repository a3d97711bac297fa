#include "monitor/options.h"

namespace monitor {
namespace {

constexpr program::Help HELP{
    PROGRAM_NAME, "[OPTIONS] TOPIC...",
    "Prints the messages on the given topics until SIGINT or SIGTERM. A TOPIC may hold\n"
    "the wildcards + (one level) and # (all levels below).\n",
    ""};

}  // namespace

Options parse_options(int argc, char** argv) {
    using program::flag_option;
    Options options;
    auto& shown = options.shown;
    options.topics = program::parse_command_line(
        argc, argv, HELP,
        {
            flag_option('P', "payload", "add the line \"Data: THE DATA HERE\", not the payload",
                        shown.show_payload),
            flag_option('Q', "qos", "show the QoS", shown.show_qos),
            flag_option('T', "timestamp", "show the time of reception, in ms since the epoch",
                        shown.show_timestamp),
            flag_option('S', "payload-size", "show the payload's size in bytes",
                        shown.show_payload_size),
        },
        program::common_options(options.common));
    if (options.topics.empty()) throw program::UsageError("a TOPIC is missing");
    return options;
}

}  // namespace monitor

#include "monitor/options.h"

#include <charconv>

namespace monitor {
namespace {

constexpr program::Help HELP{
    PROGRAM_NAME, "[OPTIONS] TOPIC...",
    "Prints the messages on the given topics until SIGINT or SIGTERM. A TOPIC may hold\n"
    "the wildcards + (one level) and # (all levels below).\n",
    "\n"
    "The exit status is 0, or 1 when -W ends it before -C's messages have come.\n"};

program::Option limit_option(char letter, const char* name, const char* value, const char* help,
                             std::uint32_t& target) {
    const auto take = [&target, letter](const std::string& text) {
        const char* const end = text.data() + text.size();
        const auto [stopped, error] = std::from_chars(text.data(), end, target);
        if (error == std::errc() && stopped == end && target > 0) return;
        throw program::UsageError(std::string("-") + letter + " needs a positive whole number");
    };
    return {letter, name, value, help, take};
}

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
            flag_option(0, "json", "print each message as a JSON object and line", options.json),
            limit_option('C', "count", "COUNT", "end after so many messages", options.count),
            limit_option('W', "wait", "SECONDS", "end so long after the connection is there",
                         options.seconds),
        },
        program::common_options(options.common));
    if (options.topics.empty()) throw program::UsageError("a TOPIC is missing");
    return options;
}

}  // namespace monitor

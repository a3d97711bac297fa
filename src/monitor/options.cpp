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

auto limit_into(std::uint32_t& target, const char* option) {
    return [&target, option](const std::string& text) {
        const char* const end = text.data() + text.size();
        const auto [stopped, error] = std::from_chars(text.data(), end, target);
        if (error == std::errc() && stopped == end && target > 0) return;
        throw program::UsageError(std::string(option) + " needs a positive whole number");
    };
}

}  // namespace

Options parse_options(int argc, char** argv) {
    using program::into;
    Options options;
    auto& shown = options.shown;
    options.topics = program::parse_command_line(
        argc, argv, HELP,
        {
            {'P', "payload", nullptr, "add the line \"Data: THE DATA HERE\", not the payload",
             into(shown.show_payload)},
            {'Q', "qos", nullptr, "show the QoS", into(shown.show_qos)},
            {'T', "timestamp", nullptr, "show the time of reception, in ms since the epoch",
             into(shown.show_timestamp)},
            {'S', "payload-size", nullptr, "show the payload's size in bytes",
             into(shown.show_payload_size)},
            {0, "json", nullptr, "print each message as a JSON object and line",
             into(options.json)},
            {'C', "count", "COUNT", "end after so many messages", limit_into(options.count, "-C")},
            {'W', "wait", "SECONDS", "end so long after the connection is there",
             limit_into(options.seconds, "-W")},
        },
        &options.common);
    if (options.topics.empty()) throw program::UsageError("a TOPIC is missing");
    return options;
}

}  // namespace monitor

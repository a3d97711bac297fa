#include "monitor/options.h"

#include <iostream>

std::optional<MonitorOptions> parse_monitor_options(int argc, char** argv) {
    MonitorOptions options;
    auto topics =
        parse_command_line(argc, argv, MONITOR_NAME, options.common,
                           {
                               flag_option('P', "payload", options.shown.show_payload),
                               flag_option('S', "payload-size", options.shown.show_payload_size),
                               flag_option('Q', "qos", options.shown.show_qos),
                               flag_option('T', "timestamp", options.shown.show_timestamp),
                           });
    if (!topics || topics->empty()) return std::nullopt;
    options.topics = std::move(*topics);
    return options;
}

void monitor_usage() {
    write_version(MONITOR_NAME);
    std::cerr
        << "\n"
        << "USAGE: " << MONITOR_NAME << " [OPTIONS] TOPIC...\n\n"
        << "Prints the messages on the given topics until SIGINT or SIGTERM. A TOPIC may hold\n"
           "the wildcards + (one level) and # (all levels below).\n\n"
        << "OPTIONS:\n"
        << "  -p, --port PORT         the broker's port, overrides the configuration\n"
        << "  -H, --host HOST         the broker's host, overrides the configuration\n"
        << "  -l, --loglevel LEVEL    one of EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE,\n"
           "                          INFO, DEBUG; overrides LOG_LEVEL (default: WARNING)\n"
        << "  -P, --payload           show a payload line\n"
        << "  -Q, --qos               show the QoS\n"
        << "  -T, --timestamp         show the time of reception, in ms since the epoch\n"
        << "  -S, --payload-size      show the payload's size in bytes\n"
        << "  -h, --help              show this help\n"
        << "  -v, --version           show the version\n"
        << std::endl;
}

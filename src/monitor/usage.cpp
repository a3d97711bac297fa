#include "monitor/usage.h"

#include <iostream>

#include "main/options.h"

void monitor_usage() {
    version(MONITOR_NAME);
    std::cerr
        << "\n"
        << "USAGE: " << MONITOR_NAME << " [OPTIONS] TOPIC...\n\n"
        << "Prints the messages on the given topics until SIGINT or SIGTERM. A TOPIC may hold\n"
           "the wildcards + (one level) and # (all levels below).\n\n"
        << "OPTIONS:\n"
        << "  -p, --port PORT         the broker's port, overrides the configuration\n"
        << "  -H, --host HOST         the broker's host, overrides the configuration\n"
        << "  -l, --loglevel LEVEL    one of EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE,\n"
           "                          INFO, DEBUG; overrides LOG_LEVEL (default: "
        << opt_loglevel << ")\n"
        << "  -P, --payload           show a payload line\n"
        << "  -Q, --qos               show the QoS\n"
        << "  -T, --timestamp         show the time of reception, in ms since the epoch\n"
        << "  -S, --payload-size      show the payload's size in bytes\n"
        << "  -h, --help              show this help\n"
        << "  -v, --version           show the version\n"
        << std::endl;
}

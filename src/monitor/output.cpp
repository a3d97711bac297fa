#include "monitor/output.h"

#include <cerrno>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "dump/json.h"
#include "program/termination.h"

namespace monitor {

using ecu::lapi::com::Message;

namespace {

std::string_view json_line(const std::string& topic, const Message& msg) {
    const std::string_view payload(reinterpret_cast<const char*>(msg.payload.data()),
                                   msg.payload.size());
    return dump::json_line({{"topic", std::string_view(topic)},
                            {"timestamp", msg.get_timestamp()},
                            {"qos", static_cast<std::uint64_t>(msg.get_qos())},
                            {"retain", msg.retain != 0},
                            {"size", std::uint64_t{payload.size()}},
                            {nullptr, dump::Bytes{payload}}});
}

}  // namespace

Output::Output(const Options& all_options) : options(all_options), printer(all_options.shown) {}

void Output::message(const std::string& topic, const Message& msg) {
    if (finished) return;
    if (options.json) {
        std::cout << json_line(topic, msg) << std::flush;
    } else {
        printer.message(topic, msg);
    }
    if (!std::cout) error = errno;
    if (std::cout && ++printed != options.count) return;
    finished = true;
    program::end_wait();
}

void Output::finish(bool time_is_over) {
    finished = true;
    if (error != 0 && error != EPIPE) {
        throw std::system_error(error, std::generic_category(), "cannot write to standard output");
    }
    if (!time_is_over || printed >= options.count) return;
    throw std::runtime_error(std::to_string(printed) + " of " + std::to_string(options.count) +
                             " messages came within " + std::to_string(options.seconds) + " s");
}

}  // namespace monitor

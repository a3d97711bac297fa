#include "monitor/output.h"

#include <cerrno>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "program/termination.h"

namespace monitor {

using ecu::lapi::com::Message;

Output::Output(const Options& all_options) : options(all_options), printer(all_options.shown) {}

void Output::message(const std::string& topic, const Message& msg) {
    if (finished) return;
    if (options.json) {
        print_json(topic, msg);
    } else {
        printer.message(topic, msg);
    }
    if (!std::cout) error = errno;
    if (std::cout && ++printed != options.count) return;
    finished = true;
    program::end_wait();
}

void Output::print_json(const std::string& topic, const Message& msg) {
    json.begin();
    json.text("topic", topic);
    json.number("timestamp", msg.get_timestamp());
    json.number("qos", static_cast<std::uint64_t>(msg.get_qos()));
    json.flag("retain", msg.retain != 0);
    json.number("size", msg.payload.size());
    json.value({reinterpret_cast<const char*>(msg.payload.data()), msg.payload.size()});
    json.end();
    std::cout << json.line() << std::flush;
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

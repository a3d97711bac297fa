#include "topic_printer/topic_printer.h"

#include <iomanip>
#include <iostream>
#include <sstream>

namespace {

constexpr char NEXT_LINE[] = "\n           ";

}  // namespace

std::string compose_block(const DisplayFlags& flags, double elapsed_seconds,
                          const std::string& topic, const ecu::lapi::com::Message& msg) {
    std::ostringstream block;
    block << "[" << std::fixed << std::setprecision(3) << std::setw(7) << std::setfill('0')
          << elapsed_seconds << "] " << topic;
    if (flags.show_payload_size) block << NEXT_LINE << "size: " << msg.payload.size();
    if (flags.show_timestamp) block << NEXT_LINE << "timestamp: " << msg.get_timestamp();
    if (flags.show_qos) block << NEXT_LINE << "QoS: " << static_cast<char>(msg.qos);
    if (flags.show_payload) block << NEXT_LINE << "Data: THE DATA HERE";
    return block.str();
}

TopicPrinter::TopicPrinter(const DisplayFlags& display_flags)
    : flags(display_flags), start_time(std::chrono::steady_clock::now()) {}

void TopicPrinter::message(const std::string& topic, const ecu::lapi::com::Message& msg) {
    const std::chrono::nanoseconds elapsed = std::chrono::steady_clock::now() - start_time;
    const double seconds = static_cast<double>(elapsed.count()) / 1e9;
    std::cout << compose_block(flags, seconds, topic, msg) << std::endl;
}

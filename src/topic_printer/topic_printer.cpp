#include "topic_printer/topic_printer.h"

#include <iomanip>
#include <iostream>
#include <sstream>

constexpr char NEXT_LINE[] = "\n           ";

void TopicPrinter::message(const std::string& topic, const ecu::lapi::com::Message& msg) {
    const std::chrono::nanoseconds elapsed = std::chrono::steady_clock::now() - start_time;
    std::ostringstream block;
    block << "[" << std::fixed << std::setprecision(3) << std::setw(7) << std::setfill('0')
          << static_cast<double>(elapsed.count()) / 1e9 << "] " << topic;
    if (shown.show_payload_size) block << NEXT_LINE << "size: " << msg.payload.size();
    if (shown.show_timestamp) block << NEXT_LINE << "timestamp: " << msg.get_timestamp();
    if (shown.show_qos) block << NEXT_LINE << "QoS: " << static_cast<char>(msg.qos);
    if (shown.show_payload) block << NEXT_LINE << "Data: THE DATA HERE";
    std::cout << block.str() << std::endl;
}

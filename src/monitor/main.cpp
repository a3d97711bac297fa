#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>

#include "ecu/lapi/com.h"
#include "monitor/options.h"
#include "monitor/output.h"
#include "program/startup.h"
#include "program/termination.h"

namespace monitor {
namespace {

namespace com = ecu::lapi::com;
using std::chrono::steady_clock;

// The highest QoS, so that each message comes with the one it was published at.
constexpr int SUBSCRIPTION = 2 + com::WATCH_ONLY;

/// Long enough for a broker, and a reader that has stopped reading is not waited for.
constexpr std::chrono::seconds LEAVE_TIMEOUT{2};

int print_messages(com::ITransportClient& client, const Options& options) {
    // One for all, so that a message that several filters match is printed once.
    const auto output = std::make_shared<Output>(options);
    client.connect();
    const auto deadline = options.seconds == 0
                              ? steady_clock::time_point::max()
                              : steady_clock::now() + std::chrono::seconds(options.seconds);
    client.start();
    for (const auto& topic : options.topics) client.subscribe(topic, SUBSCRIPTION, output);
    // Also over when nobody reads standard output any more.
    const auto end = program::wait_for_termination(STDOUT_FILENO, 0, LEAVE_TIMEOUT, deadline);
    output->finish(end == program::WaitEnd::deadline);
    return EXIT_SUCCESS;
}

int watch(const Options& options) {
    program::end_at_termination_signals();
    auto configuration = program::load_configuration(PROGRAM_NAME, options.common);
    const auto client = program::create_transport(configuration);
    return program::run_connected(PROGRAM_NAME, *client,
                                  [&] { return print_messages(*client, options); });
}

}  // namespace
}  // namespace monitor

int main(int argc, char** argv) {
    return program::run_program(monitor::PROGRAM_NAME,
                                [&] { return monitor::watch(monitor::parse_options(argc, argv)); });
}

#include "monitor/run.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <iostream>
#include <memory>
#include <system_error>

#include "ecu/lapi/com.h"
#include "monitor/options.h"
#include "program/startup.h"
#include "program/termination.h"
#include "topic_printer/topic_printer.h"

namespace monitor {
namespace {

namespace com = ecu::lapi::com;

// The highest QoS, so that each message comes with the one it was published at.
constexpr int SUBSCRIPTION = 2 + com::WATCH_ONLY;

/// Long enough for a broker, and a reader that has stopped reading is not waited for.
constexpr std::chrono::seconds LEAVE_TIMEOUT{2};

/// Prints messages until standard output takes no more, which ends the program's wait.
class Output : public com::ISubscriptionObserver {
public:
    explicit Output(const DisplayFlags& shown) : printer(shown) {}

    /// Called on the delivery thread.
    void message(const std::string& topic, const com::Message& msg) override {
        if (error != 0) return;
        printer.message(topic, msg);
        if (std::cout) return;
        error = errno;
        program::end_wait();
    }

    /// Throws std::system_error when a message could not be printed although somebody reads them.
    void check() const {
        if (error == 0 || error == EPIPE) return;
        throw std::system_error(error, std::generic_category(), "cannot write to standard output");
    }

private:
    TopicPrinter printer;
    std::atomic<int> error{0};  ///< of the write that failed
};

void print_messages(com::ITransportClient& client, const Options& options) {
    // One for all, so that a message that several filters match is printed once.
    const auto output = std::make_shared<Output>(options.shown);
    client.connect();
    client.start();
    for (const auto& topic : options.topics) client.subscribe(topic, SUBSCRIPTION, output);
    // Also over when nobody reads standard output any more.
    program::wait_for_termination(STDOUT_FILENO, 0, LEAVE_TIMEOUT);
    output->check();
}

bool watch(const Options& options) {
    program::end_at_termination_signals();
    auto configuration = program::load_configuration(PROGRAM_NAME, options.common);
    const auto client = program::create_transport(configuration);
    const bool watched = program::attempt(PROGRAM_NAME, [&] {
        print_messages(*client, options);
        return true;
    });
    return program::close_connection(PROGRAM_NAME, *client) && watched;
}

}  // namespace

int run(int argc, char** argv) {
    return program::run_program(PROGRAM_NAME, [&] { return watch(parse_options(argc, argv)); });
}

}  // namespace monitor

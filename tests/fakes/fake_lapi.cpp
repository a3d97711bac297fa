// A platform library that tells each call on standard error. Variables of the environment hold
// words with which calls begin: calls that THROW or THROW_INT, that FAIL in their own way, that
// never return (HANG), and during which a signal comes (SIGNAL). MODULE_OFF disables the active log
// module.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <stdexcept>

#include "ecu/lapi/com.h"
#include "ecu/lapi/logging.h"
#include "ecu/lapi/var.h"

namespace {

using ecu::lapi::com::Message;
using ecu::lapi::pb::SystemParameterEntry;
using ecu::lapi::var::ParameterMap;

/// False when the call is to fail.
bool tell(const std::string& call) {
    std::cerr << "lapi: " << call << std::endl;
    const std::string word = " " + call.substr(0, call.find_first_of(" ,")) + " ";
    const auto is_in = [&word](const char* variable) {
        const char* const words = std::getenv(variable);
        return words != nullptr && (" " + std::string(words) + " ").find(word) != std::string::npos;
    };
    if (is_in("SIGNAL")) raise(SIGTERM);
    if (is_in("THROW")) throw std::runtime_error("no luck");
    if (is_in("THROW_INT")) throw 1;
    while (is_in("HANG")) pause();
    return !is_in("FAIL");
}

ParameterMap made_parameters() {
    const std::string many(48, 'x');
    const std::pair<std::uint32_t, std::string> values[] = {
        {9, ""}, {10, "\x1b[2"}, {11, many + "y"}, {12, many + many + "a"}, {288, "Hi"}};
    ParameterMap made;
    for (const auto& [otaid, data] : values) {
        made[otaid].set_otaid(otaid);
        made[otaid].set_did(255);
        made[otaid].set_xcpid(10);
        made[otaid].set_data(data);
    }
    return made;
}

const ParameterMap PARAMETERS = made_parameters();

class TransportClient : public ecu::lapi::com::ITransportClient {
public:
    using Observer = std::shared_ptr<ecu::lapi::com::ISubscriptionObserver>;

    ~TransportClient() override { tell("release the client"); }
    void connect() override { tell("connect"); }
    void start() override { tell("start"); }
    void stop() override { tell("stop"); }

    /// A message may be on its way when nobody waits for it any more.
    void disconnect() override {
        for (const auto& [topic, observer] : subscribed) deliver(observer, topic, "late");
        tell("disconnect");
    }
    void publish(const std::string& topic, const Message& message) override {
        tell("publish " + topic + " QoS " + std::to_string(message.get_qos()) +
             ", bytes: " + std::to_string(message.payload.size()));
    }
    /// Messages come before the call returns, the first ones on other topics.
    void subscribe(const std::string& topic, int qos, Observer observer) override {
        subscribed.emplace_back(topic, observer);
        tell("subscribe " + topic + " " + std::to_string(qos));
        const std::pair<std::string, const char*> messages[] = {
            {"system/vard/secstore", "above"},
            {"system/vard/secstore/set", "other"},
            {topic + "/more", "below"},
            {topic, "one\n"},
            {topic, "two"}};
        for (const auto& [name, text] : messages) deliver(observer, name, text);
    }
    void unsubscribe(const std::string& topic, Observer observer) override {
        const bool is_known =
            std::count(subscribed.begin(), subscribed.end(), std::pair(topic, observer)) != 0;
        tell("unsubscribe " + topic + (is_known ? "" : " of somebody else"));
    }

private:
    static void deliver(const Observer& observer, const std::string& topic,
                        const std::string& text) {
        observer->message(topic, Message({text.begin(), text.end()}));
    }

    std::vector<std::pair<std::string, Observer>> subscribed;
};

class SystemParameterClient : public ecu::lapi::var::ISystemParameterClient {
public:
    ~SystemParameterClient() override { tell("release the parameters"); }

    std::pair<bool, SystemParameterEntry> get_parameter(std::uint32_t otaid, int flags) override {
        tell("get_parameter " + std::to_string(otaid) + " " + std::to_string(flags));
        const auto found = PARAMETERS.find(otaid);
        if (found == PARAMETERS.end()) return {false, {}};
        return {true, found->second};
    }
    ParameterMap get_parameters(int flags) override {
        return tell("get_parameters " + std::to_string(flags)) ? PARAMETERS : ParameterMap();
    }
    void set_parameters(ParameterMap& parameters) override {
        tell("set_parameters");
        for (const auto& [otaid, entry] : parameters) {
            std::cerr << otaid << ": OTAID " << entry.otaid();
            if (entry.has_did()) std::cerr << ", DID " << entry.did();
            if (entry.has_xcpid()) std::cerr << ", XCPID " << entry.xcpid();
            std::cerr << ", data " << entry.data() << std::endl;
            if (!entry.has_did()) unwritten[otaid] = entry;
        }
    }
    std::pair<bool, ParameterMap> write_parameters() override {
        const bool written = tell("write_parameters");
        return {written, written ? ParameterMap() : unwritten};
    }

private:
    ParameterMap unwritten;  ///< those that fail: without a DID
};

const std::vector<std::string> LEVELS{"EMERG",   "ALERT",  "CRITICAL", "ERROR",
                                      "WARNING", "NOTICE", "INFO",     "DEBUG"};
int log_level = 0;

}  // namespace

/// Takes the place of the C library's.
extern "C" int nanosleep(const timespec* time, timespec* left) {
    tell("nanosleep " + std::to_string(time->tv_sec) + " s, " + std::to_string(time->tv_nsec) +
         " ns" + (left != nullptr ? ", remainder" : ""));
    return 0;
}

namespace ecu::lapi {

config::Configuration::Configuration() {
    tell("Configuration");
}

std::string& config::Configuration::operator[](const std::string& key) {
    return settings[key].value;
}

bool config::Configuration::verify() const {
    return tell("verify, settings: " + std::to_string(settings.size()));
}

std::shared_ptr<com::ITransportClient> com::create_client(
    std::unique_ptr<config::Configuration>& config, TransportType type) {
    auto& settings = *config;
    const std::string place = settings["host"] + ":" + settings["port"];
    const bool made = tell("create_client " + std::to_string(static_cast<int>(type)) + " for " +
                           settings["client_name"] + " at " + place);
    config.reset();
    return made ? std::make_shared<TransportClient>() : nullptr;
}

std::shared_ptr<var::ISystemParameterClient> var::create_sysparams_client(
    std::shared_ptr<com::ITransportClient> /*transport*/) {
    return tell("create_sysparams_client") ? std::make_shared<SystemParameterClient>() : nullptr;
}

namespace logging {

void set_log_mode(LogMode mode) {
    tell("set_log_mode " + std::to_string(static_cast<int>(mode)));
}

void configure_logging(const std::string& level) {
    tell("configure_logging " + level);
    log_level = static_cast<int>(std::find(LEVELS.begin(), LEVELS.end(), level) - LEVELS.begin());
}

int get_log_level() {
    return log_level;
}

_internal::LogStream ERROR(LEVEL_ERROR), WARNING(LEVEL_WARNING), NOTICE(LEVEL_NOTICE),
    INFO(LEVEL_INFO), DEBUG(LEVEL_DEBUG);

namespace _internal {

std::shared_ptr<LogModule> LogStreambuf::get_active_module() {
    const auto module = std::make_shared<LogModule>();
    module->enabled = std::getenv("MODULE_OFF") == nullptr;
    if (!module->enabled) tell("get_active_module");
    return module;
}

LogStream::LogStream(Level level_of_stream)
    : std::ostream(&buffer), stream_level(level_of_stream) {}

void LogStream::do_flush() {
    const auto level = static_cast<std::size_t>(stream_level);
    std::cerr << LEVELS.at(level) << ": " << buffer.str() << std::endl;
    buffer.str("");
}

}  // namespace _internal
}  // namespace logging
}  // namespace ecu::lapi

#include "lapi_fake.h"

#include <mutex>
#include <stdexcept>

namespace fake {

namespace {

using ecu::lapi::pb::SystemParameterEntry;
using ecu::lapi::var::ParameterMap;

const std::vector<std::string> LEVELS{"EMERG",   "ALERT",  "CRITICAL", "ERROR",
                                      "WARNING", "NOTICE", "INFO",     "DEBUG"};
std::mutex recording;

class TransportClient : public ecu::lapi::com::ITransportClient {
public:
    using Message = ecu::lapi::com::Message;

    ~TransportClient() override { lapi().record("release client"); }

    void connect() override { lapi().record("connect"); }
    void disconnect() override { lapi().record("disconnect"); }
    void start() override { lapi().record("start"); }
    void stop() override { lapi().record("stop"); }

    void publish(const std::string& topic, const Message&) override {
        lapi().record("publish " + topic);
    }
    void subscribe(const std::string& topic, int qos, Observer observer) override {
        lapi().record("subscribe " + topic + " " + std::to_string(qos));
        lapi().subscribed.emplace_back(topic, observer);
        if (lapi().on_subscribe) lapi().on_subscribe(topic, observer);
    }
    void unsubscribe(const std::string& topic, Observer observer) override {
        lapi().record("unsubscribe " + topic);
        lapi().unsubscribed.emplace_back(topic, observer);
    }
};

class SystemParameterClient : public ecu::lapi::var::ISystemParameterClient {
public:
    ~SystemParameterClient() override { lapi().record("release sysparams"); }

    std::pair<bool, SystemParameterEntry> get_parameter(std::uint32_t otaid,
                                                        int reserved) override {
        lapi().record("get_parameter " + std::to_string(otaid) + " " + std::to_string(reserved));
        const bool found = lapi().parameters.count(otaid) != 0;
        return {found, found ? lapi().parameters[otaid] : SystemParameterEntry()};
    }
    ParameterMap get_parameters(int reserved) override {
        lapi().record("get_parameters " + std::to_string(reserved));
        return lapi().parameters;
    }
    void set_parameters(ParameterMap& parameters) override {
        lapi().record("set_parameters");
        lapi().handed_over = parameters;
    }
    std::pair<bool, ParameterMap> write_parameters() override {
        lapi().record("write_parameters");
        return {lapi().writes, lapi().refused};
    }
};

}  // namespace

void Lapi::record(const std::string& call) {
    const std::lock_guard<std::mutex> lock(recording);
    calls.push_back(call);
    if (errors.count(call) != 0) throw std::runtime_error(errors[call]);
}

Lapi& lapi() {
    static Lapi the_one;
    return the_one;
}

SystemParameterEntry entry(std::uint32_t otaid, std::uint32_t did, std::uint32_t xcpid,
                           const std::string& data) {
    SystemParameterEntry record;
    record.set_otaid(otaid);
    record.set_did(did);
    record.set_xcpid(xcpid);
    record.set_data(data);
    return record;
}

std::shared_ptr<ecu::lapi::com::ITransportClient> transport() {
    return std::make_shared<TransportClient>();
}

}  // namespace fake

namespace ecu::lapi {

config::Configuration::Configuration() {
    fake::lapi().record("Configuration");
}

std::string& config::Configuration::operator[](const std::string& key) {
    fake::lapi().record("[" + key + "]");
    return fake::lapi().configuration[key];
}

bool config::Configuration::verify() const {
    fake::lapi().record("verify");
    return true;
}

std::shared_ptr<com::ITransportClient> com::create_client(
    std::unique_ptr<config::Configuration>& config, TransportType type) {
    fake::lapi().record("create_client " + std::to_string(static_cast<int>(type)));
    config.reset();
    return fake::lapi().creates_client ? fake::transport() : nullptr;
}

std::shared_ptr<var::ISystemParameterClient> var::create_sysparams_client(
    std::shared_ptr<com::ITransportClient> /*transport*/) {
    fake::lapi().record("create_sysparams_client");
    return fake::lapi().creates_sysparams ? std::make_shared<fake::SystemParameterClient>()
                                          : nullptr;
}

void logging::set_log_mode(LogMode mode) {
    fake::lapi().record("set_log_mode " + std::to_string(static_cast<int>(mode)));
}

void logging::configure_logging(const std::string& level) {
    fake::lapi().record("configure_logging " + level);
}

int logging::get_log_level() {
    return fake::lapi().log_level;
}

namespace logging {

_internal::LogStream ERROR(LEVEL_ERROR), WARNING(LEVEL_WARNING), NOTICE(LEVEL_NOTICE),
    INFO(LEVEL_INFO), DEBUG(LEVEL_DEBUG);

}

namespace logging::_internal {

std::shared_ptr<LogModule> LogStreambuf::get_active_module() {
    const std::lock_guard<std::mutex> lock(fake::recording);
    ++fake::lapi().module_tests;
    const auto module = std::make_shared<LogModule>();
    module->enabled = fake::lapi().module_enabled;
    return module;
}

LogStream::LogStream(Level level_of_stream) : std::ostream(nullptr), stream_level(level_of_stream) {
    rdbuf(&buffer);
}

void LogStream::do_flush() {
    const std::lock_guard<std::mutex> lock(fake::recording);
    fake::lapi().records.push_back(fake::LEVELS.at(static_cast<std::size_t>(stream_level)) + ": " +
                                   buffer.str());
    buffer.str("");
}

}  // namespace logging::_internal

}  // namespace ecu::lapi

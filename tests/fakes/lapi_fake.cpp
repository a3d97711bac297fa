#include "lapi_fake.h"

#include <algorithm>
#include <mutex>

namespace com = ecu::lapi::com;
namespace var = ecu::lapi::var;

namespace fake {

namespace {

std::mutex recording;
int log_level = ecu::lapi::logging::LEVEL_WARNING;

Lapi fresh() {
    Lapi lapi;
    lapi.parameters[288] = entry(288, 255, 10, "Hi");
    return lapi;
}

class TransportClient : public com::ITransportClient {
public:
    ~TransportClient() override { lapi().record("release client"); }

    void connect() override { lapi().record("connect"); }
    void disconnect() override { lapi().record("disconnect"); }
    void start() override { lapi().record("start"); }
    void stop() override { lapi().record("stop"); }

    void publish(const std::string& topic, const com::Message& message) override {
        lapi().record("publish " + topic);
        lapi().published.emplace_back(topic, message);
    }
    void subscribe(const std::string& topic, int qos, Observer observer) override {
        lapi().record("subscribe " + topic + " " + std::to_string(qos));
        lapi().subscribed.emplace_back(topic, observer);
        if (lapi().on_subscribe) lapi().on_subscribe(topic, observer);
    }
    void unsubscribe(const std::string& topic, Observer observer) override {
        lapi().record("unsubscribe " + topic);
        lapi().unsubscribed.emplace_back(topic, observer);
        if (lapi().on_unsubscribe) lapi().on_unsubscribe();
    }
    com::Message request(const std::string& topic, const com::Message& /*message*/) override {
        lapi().record("request " + topic);
        return {};
    }
    void serve(const std::string& topic, com::RequestHandler /*handler*/) override {
        lapi().record("serve " + topic);
    }
};

class SystemParameterClient : public var::ISystemParameterClient {
public:
    explicit SystemParameterClient(std::shared_ptr<com::ITransportClient> client)
        : transport(std::move(client)) {}
    ~SystemParameterClient() override { lapi().record("release sysparams"); }

    std::pair<bool, ecu::lapi::pb::SystemParameterEntry> get_parameter(std::uint32_t otaid,
                                                                       int reserved) override {
        lapi().record("get_parameter " + std::to_string(otaid) + " " + std::to_string(reserved));
        const auto found = lapi().parameters.find(otaid);
        if (found == lapi().parameters.end()) return {false, {}};
        return {true, found->second};
    }
    var::ParameterMap get_parameters(int reserved) override {
        lapi().record("get_parameters " + std::to_string(reserved));
        return lapi().parameters;
    }
    void set_parameters(var::ParameterMap& parameters) override {
        lapi().record("set_parameters");
        lapi().handed_over = parameters;
    }
    std::pair<bool, var::ParameterMap> write_parameters() override {
        lapi().record("write_parameters");
        return {lapi().writes, lapi().refused};
    }

private:
    std::shared_ptr<com::ITransportClient> transport;
};

}  // namespace

void Lapi::record(const std::string& call) {
    const std::lock_guard<std::mutex> lock(recording);
    calls.push_back(call);
    const auto error = errors.find(call);
    if (error != errors.end())
        throw com::TransportError(com::TransportError::Kind::failed, error->second);
}

Lapi& lapi() {
    static Lapi the_one = fresh();
    return the_one;
}

void reset() {
    lapi() = fresh();
    log_level = ecu::lapi::logging::LEVEL_WARNING;
}

ecu::lapi::pb::SystemParameterEntry entry(std::uint32_t otaid, std::uint32_t did,
                                          std::uint32_t xcpid, const std::string& data) {
    ecu::lapi::pb::SystemParameterEntry record;
    record.set_otaid(otaid);
    record.set_did(did);
    record.set_xcpid(xcpid);
    record.set_data(data);
    return record;
}

std::shared_ptr<com::ITransportClient> transport() {
    return std::make_shared<TransportClient>();
}

}  // namespace fake

namespace ecu::lapi::config {

Configuration::Configuration() {
    fake::lapi().record("Configuration");
}

std::string& Configuration::operator[](const std::string& key) {
    fake::lapi().record("[" + key + "]");
    return values[key];
}

std::string Configuration::get(const std::string& key) const {
    const auto found = values.find(key);
    return found == values.end() ? "" : found->second;
}

bool Configuration::verify() const {
    fake::lapi().record("verify");
    return fake::lapi().verifies;
}

}  // namespace ecu::lapi::config

namespace ecu::lapi::com {

std::shared_ptr<ITransportClient> create_client(std::unique_ptr<config::Configuration>& config,
                                                TransportType type) {
    fake::lapi().record("create_client " + std::to_string(static_cast<int>(type)));
    for (const char* key : {"client_name", "host", "port"}) {
        if (!config->get(key).empty()) fake::lapi().configuration[key] = config->get(key);
    }
    if (!fake::lapi().creates_client) return nullptr;
    config.reset();
    return fake::transport();
}

}  // namespace ecu::lapi::com

namespace ecu::lapi::var {

std::shared_ptr<ISystemParameterClient> create_sysparams_client(
    std::shared_ptr<com::ITransportClient> transport) {
    fake::lapi().record("create_sysparams_client");
    if (!fake::lapi().creates_sysparams) return nullptr;
    return std::make_shared<fake::SystemParameterClient>(std::move(transport));
}

}  // namespace ecu::lapi::var

namespace ecu::lapi::logging {

namespace {

const std::vector<std::string> LEVELS{"EMERG",   "ALERT",  "CRITICAL", "ERROR",
                                      "WARNING", "NOTICE", "INFO",     "DEBUG"};

}  // namespace

_internal::LogStream ERROR(LEVEL_ERROR);
_internal::LogStream WARNING(LEVEL_WARNING);
_internal::LogStream NOTICE(LEVEL_NOTICE);
_internal::LogStream INFO(LEVEL_INFO);
_internal::LogStream DEBUG(LEVEL_DEBUG);

void set_log_mode(LogMode mode) {
    fake::lapi().record("set_log_mode " + std::to_string(static_cast<int>(mode)));
}

void configure_logging(const std::string& level) {
    fake::lapi().record("configure_logging " + level);
    const auto found = std::find(LEVELS.begin(), LEVELS.end(), level);
    if (found != LEVELS.end()) fake::log_level = static_cast<int>(found - LEVELS.begin());
}

int get_log_level() {
    return fake::log_level;
}

namespace _internal {

std::shared_ptr<LogModule> LogStreambuf::get_active_module() {
    const std::lock_guard<std::mutex> lock(fake::recording);
    ++fake::lapi().module_tests;
    return std::make_shared<LogModule>(LogModule{fake::lapi().module_enabled});
}

std::string LogStreambuf::take() {
    return std::exchange(record, {});
}

LogStreambuf::int_type LogStreambuf::overflow(int_type character) {
    record += traits_type::to_char_type(character);
    return character;
}

std::streamsize LogStreambuf::xsputn(const char* text, std::streamsize count) {
    record.append(text, static_cast<std::size_t>(count));
    return count;
}

LogStream::LogStream(Level level_of_stream) : std::ostream(nullptr), stream_level(level_of_stream) {
    rdbuf(&buffer);
}

void LogStream::do_flush() {
    const std::lock_guard<std::mutex> lock(fake::recording);
    fake::lapi().records.push_back(LEVELS[static_cast<std::size_t>(stream_level)] + ": " +
                                   buffer.take());
}

}  // namespace _internal

}  // namespace ecu::lapi::logging

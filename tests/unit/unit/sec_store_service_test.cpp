#include "unit/sec_store_service.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <deque>
#include <filesystem>

#include "lapi_mqtt/service_client.h"
#include "protocol/topics.h"

namespace {

using ecu::lapi::com::Message;

/// Takes messages of up to five bytes while it is connected.
struct ScriptedTransport : lapi_mqtt::IServiceClient {
    using Observer = std::shared_ptr<ecu::lapi::com::ISubscriptionObserver>;
    void connect() override {}
    void disconnect() override {}
    void publish(const std::string&, const Message&) override {}
    void unsubscribe(const std::string&, Observer) override {}
    void serve(const std::string&, lapi_mqtt::RequestHandler) override {}
    void show_presence() override {}
    void start() override {}
    void stop() override {}
    void post(std::function<void()> job) override { posted.push_back(std::move(job)); }
    void subscribe(const std::string&, int, Observer added) override { observer = added; }
    void publish(const std::string& topic, const Message& message,
                 lapi_mqtt::AckHandler handler) override {
        using lapi_mqtt::TransportError;
        const std::string text(message.payload.begin(), message.payload.end());
        if (!is_connected) throw TransportError(TransportError::Kind::not_connected, "no");
        if (text.size() > 5) throw std::runtime_error("too large");
        published += (topic == protocol::SECSTORE_GET_TOPIC ? "=" : "-") + text;
        handlers.push_back(handler);
    }

    Observer observer;
    bool is_connected = true;
    std::string published;
    std::deque<lapi_mqtt::AckHandler> handlers;
    std::vector<std::function<void()>> posted;
};

/// What the events make it publish: "-" asks whether older messages have come, "=" is a blob. In
/// brackets what is stored before posted jobs run.
void expect_published(const std::string& events, const std::string& published, unit::Store& store) {
    const std::string set = protocol::SECSTORE_SET_TOPIC, announced = protocol::ANNOUNCEMENT_TOPIC;
    const std::map<char, std::pair<std::string, std::string>> messages{
        {'a', {announced, protocol::SECSTORE_GET_TOPIC}},  // a client announces that it waits
        {'o', {announced, announced}},                     // the unit itself subscribes
        {'x', {announced, "x"}},
        {'s', {set, "new"}},
        {'e', {set, ""}},
        {'b', {set, "larger"}},
    };
    store.replace_blob({'o', 'l', 'd'});
    ScriptedTransport transport;
    unit::SecStoreService::start(store, transport);
    for (const char event : events) {
        if (event == 'p') {
            const auto stored = store.blob();
            transport.published += "[" + std::string(stored.begin(), stored.end()) + "]";
            for (const auto& job : std::exchange(transport.posted, {})) job();
        } else if (event == '+' || event == '!') {  // what was published is acknowledged, or not
            const auto handler = transport.handlers.at(0);
            transport.handlers.pop_front();
            handler(event == '+');
        } else if (event == '<' || event == '>') {  // the connection is lost, and is there again
            transport.is_connected = event == '>';
        } else {
            const auto& [topic, text] = messages.at(event);
            transport.observer->message(topic, Message({text.begin(), text.end()}));
        }
    }
    EXPECT_EQ(transport.published, published) << events;
}

TEST(SecStoreService, SendsEveryWaitingClientTheNewestBlobOnce) {
    const std::pair<const char*, const char*> table[] = {
        {"asa+", "-=new"},
        {"a+aa+++", "-=old-=old"},
        {"ba+", "-="},
        {"x", ""},
        {"a!", "-"},
        {"eo+a+", "--="},
        {"ea!o+", "--="},
        {"ea+!o+", "-=-="},
        {"sepspp", "[old][][new]"},
        {"sa+pp", "-=new[new][new]"},
        {"<a>o+", "-=old"},
        {"ea<+>o+", "--="},
    };
    testing::internal::CaptureStderr();
    const std::string path = testing::TempDir() + "blobs-" + std::to_string(getpid());
    {
        unit::Store store(path);
        for (const auto& [events, published] : table) expect_published(events, published, store);
    }
    std::filesystem::remove(path);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR: Cannot send the secure-store blob: too large\n");
}

}  // namespace

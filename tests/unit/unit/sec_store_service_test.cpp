#include "unit/sec_store_service.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <deque>

#include "lapi_mqtt/requester.h"
#include "lapi_mqtt/service_client.h"
#include "protocol/topics.h"

namespace {

using ecu::lapi::com::Message;
using lapi_mqtt::AckHandler;
using lapi_mqtt::TransportError;

/// Takes messages of up to five bytes; acknowledges them and runs what is posted when the test says
/// so.
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
    void subscribe(const std::string&, int, Observer new_observer) override {
        observer = new_observer;
    }
    void publish(const std::string& topic, const Message& message, AckHandler handler) override {
        const std::string text(message.payload.begin(), message.payload.end());
        if (text.size() > 5) throw TransportError(TransportError::Kind::failed, "too large");
        const bool is_blob = topic == protocol::SECSTORE_GET_TOPIC;
        EXPECT_TRUE(is_blob || text.empty()) << topic;
        published += is_blob ? "=" + text : "-";
        handlers.push_back(handler);
    }
    void post(std::function<void()> job) override { posted.push_back(std::move(job)); }
    void acknowledge(bool acknowledged) {
        if (handlers.empty()) return;
        const auto handler = handlers.front();
        handlers.pop_front();
        handler(acknowledged);
    }
    void run_posted() {
        for (const auto& job : std::exchange(posted, {})) job();
    }

    Observer observer;
    std::string published;
    std::deque<AckHandler> handlers;
    std::vector<std::function<void()>> posted;
};

/// Events: a client announces that it waits (a), the unit itself subscribes (o), a topic that is
/// nobody's (x); a set of "new" (s), of nothing (e), of too much (b), both retained (r, k); what
/// was published is acknowledged (t) or not (l); what was posted runs (p). Published: "-" asks
/// whether older messages have come, "=" is a blob. In brackets what is stored once posted jobs
/// have run.
void expect_published(const std::string& events, const char* published) {
    const std::string path = testing::TempDir() + "blobs-" + std::to_string(getpid());
    unit::Store store(path);
    store.replace_blob({'o', 'l', 'd'});
    ScriptedTransport transport;
    unit::SecStoreService::start(store, transport);
    const std::string get = protocol::SECSTORE_GET_TOPIC, set = protocol::SECSTORE_SET_TOPIC;
    const std::string announced = protocol::ANNOUNCEMENT_TOPIC;
    const std::map<char, std::pair<std::string, std::string>> messages{
        {'a', {announced, get}}, {'o', {announced, announced}},
        {'x', {announced, "x"}}, {'s', {set, "new"}},
        {'e', {set, ""}},        {'b', {set, "larger"}}};
    for (const char event : events) {
        if (const auto sent = messages.find(event); sent != messages.end()) {
            const auto& [topic, text] = sent->second;
            transport.observer->message(topic, Message({text.begin(), text.end()}));
        } else if (event == 'p') {
            transport.run_posted();
            const auto stored = store.blob();
            transport.published += "[" + std::string(stored.begin(), stored.end()) + "]";
        } else {
            transport.acknowledge(event == 't');
        }
    }
    EXPECT_EQ(transport.published, published) << events;
    for (const char* suffix : {"", "-wal", "-shm"}) unlink((path + suffix).c_str());
}

TEST(SecStoreService, SendsEveryWaitingClientTheNewestBlobOnce) {
    const std::pair<const char*, const char*> table[] = {
        {"aaattt", "-=old"},
        {"asat", "-=new"},
        {"ataattt", "-=old-=old"},
        {"atstt", "-=old"},
        {"atp", "-=old[old]"},
        {"eat", "-="},
        {"bat", "-="},
        {"xt", ""},
        {"ot", "-=old"},
        {"eottat", "--="},
        {"ealot", "--="},
        {"eatlot", "-=-="},
        {"bespa", "[new]-"},
        {"sepsp", "[][new]"},
        {"satpt", "-=new[new]"},
    };
    for (const auto& [events, published] : table) expect_published(events, published);
}

}  // namespace

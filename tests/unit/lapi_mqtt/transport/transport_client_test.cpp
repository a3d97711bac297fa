#include "lapi_mqtt/transport/transport_client.h"

#include <gmock/gmock.h>

#include <future>

#include "fakes/scripted_connection.h"

namespace {

using ecu::lapi::com::Message;
using lapi_mqtt::Reason;
using lapi_mqtt::TransportError;
using std::chrono::milliseconds;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

Message text(const std::string& bytes, char qos = '\0') {
    Message message({bytes.begin(), bytes.end()});
    message.qos = static_cast<std::uint8_t>(qos);
    return message;
}

struct Silent : ecu::lapi::com::ISubscriptionObserver {
    void message(const std::string&, const Message&) override {}
};

/// A request's properties.
lapi_mqtt::PublishProperties asked(const char* response_topic, const char* correlation = "c") {
    lapi_mqtt::PublishProperties properties;
    properties.response_topic = response_topic;
    properties.correlation_data = correlation;
    properties.timeout = milliseconds(900);
    return properties;
}

Reason reason(int code, const char* text = "") {
    Reason made;
    made.code = code;
    made.text = text;
    return made;
}

auto fails(const char* words) {
    return ThrowsMessage<TransportError>(HasSubstr(words));
}

struct Transport : testing::Test {
    Transport() {
        settings.host = "unit";
        settings.port = 1883;
        settings.client_name = "test";
        settings.request_timeout = milliseconds(300);
    }
    ~Transport() override { client.reset(); }

    void connected(bool is_service = false) {
        const auto make = [this](auto& events) {
            return std::make_unique<fake::ScriptedConnection>(broker, events);
        };
        client = std::make_unique<lapi_mqtt::TransportClient>(settings, is_service, make);
        client->connect();
        client->start();
    }
    bool await_sent(const std::string& packet) {
        return broker.await([&] { return testing::Value(broker.packets, Contains(packet)); });
    }
    void serve(std::function<void()> action = [] {}) {
        client->serve("s", [action](const Message&) { return action(), text("!"); });
    }
    /// Answers packets that begin so with a reason, or not at all.
    void script(const std::string& begin, std::optional<Reason> given) {
        broker.answer = [begin, given, usual = broker.answer](const auto& packet) {
            return packet.rfind(begin, 0) == 0 ? given : usual(packet);
        };
    }

    lapi_mqtt::Settings settings;
    fake::Broker broker;
    std::unique_ptr<lapi_mqtt::TransportClient> client;
    const std::string announced = "publish subscription/announcement ";
};

TEST_F(Transport, SendsARequestWhenTheReplyTopicIsGrantedAndNotBefore) {
    settings.topic_prefix = "units/7/";
    connected();
    script("publish units/7/t", std::nullopt);
    script("subscribe clients/", std::nullopt);
    const auto request = [this] { client->request("t", text("?")); };
    EXPECT_THAT(request, fails("/reply on the broker at unit:1883: the broker does not answer"));
    ASSERT_EQ(broker.sent().size(), 1U);
    const std::string reply_topic = broker.sent().front().substr(10, 35);
    script("subscribe clients/", reason(0x87, "Not authorized (ask the admin)"));
    EXPECT_THAT(request, fails("Not authorized (ask the admin)"));
    script("subscribe clients/", reason(1));
    const auto start = std::chrono::steady_clock::now();
    std::thread unrelated([&] {  // as many as there are, none of them stretches the wait
        for (int n = 0; n < 50; ++n, std::this_thread::sleep_for(milliseconds(10))) {
            std::unique_lock<std::mutex> lock(broker.mutex);
            broker.traffic.bytes_received += 100'000;
            lock.unlock();
            broker.send(reply_topic, "another's", asked("", "other"));
        }
    });
    EXPECT_THAT(request,
                fails("request units/7/t on the broker at unit:1883: no reply within 300 ms"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(450));
    unrelated.join();
    EXPECT_EQ(broker.properties.back().content_type, "application/x-protobuf");
    EXPECT_EQ(broker.properties.back().timeout, milliseconds(300));
}

TEST_F(Transport, ForgetsAnObserverWhoseSubscriptionFails) {
    connected();
    const auto observer = std::make_shared<Silent>();
    script("subscribe a", reason(0x8f, "Topic filter invalid"));
    EXPECT_THAT([&] { client->subscribe("a", 0, observer); }, fails("Topic filter"));
    script("subscribe b", reason(0));
    script(announced, reason(0x10));
    client->subscribe("b", 1, observer);
    EXPECT_TRUE(await_sent(announced + "b q1"));
    EXPECT_EQ(observer.use_count(), 2);
    EXPECT_THAT(broker.sent(), ElementsAre("subscribe a q0", "subscribe b q1", announced + "b q1"));
    client->unsubscribe("b", observer);
    EXPECT_EQ(observer.use_count(), 1);
}

TEST_F(Transport, RemembersALostPublicationWhateverFollows) {
    connected();
    client->publish("x", text("sure", '2'));
    EXPECT_TRUE(await_sent("publish x sure q2"));
    script(announced + "lost", std::nullopt);
    client->publish("lost", text("1"));
    broker.cut();
    EXPECT_TRUE(broker.await([this] { return broker.connections_made == 2; }));
    const auto publishes = [this] {
        try {
            return client->publish("later", text("2")), true;
        } catch (const TransportError&) {
            return false;
        }
    };
    while (!publishes()) std::this_thread::sleep_for(milliseconds(5));
    EXPECT_THAT([this] { client->disconnect(); }, fails("publish on lost"));
    EXPECT_THAT(broker.sent(),
                ElementsAre("publish x sure q2", "publish lost 1 q0", announced + "lost q1",
                            "publish later 2 q0", announced + "later q1", "disconnect"));
}

TEST_F(Transport, TellsWhatBecameOfAMessage) {
    connected();
    std::promise<bool> acknowledged, refused, lost;
    const auto set = [](auto& promise) { return [&](bool ack) { promise.set_value(ack); }; };
    script("publish b", reason(0x87));
    script("publish c", std::nullopt);
    client->publish("a", text("1"), set(acknowledged));
    client->publish("b", text("2"), set(refused));
    client->publish("c", text("3"), set(lost));
    EXPECT_TRUE(acknowledged.get_future().get());
    EXPECT_FALSE(refused.get_future().get());
    broker.cut();
    EXPECT_FALSE(lost.get_future().get());
    EXPECT_THAT(broker.sent(), Contains("publish a 1 q1"));
}

TEST_F(Transport, StopsOnASilentConnection) {
    connected();
    client->subscribe("a", 0, std::make_shared<Silent>());
    client->stop();
    EXPECT_EQ(broker.sent().back(), "abort");
}

TEST_F(Transport, ServesOnlyWhatCanBeAskedAndCorrectsItsPresence) {
    connected(true);
    script("subscribe s", reason(0));
    std::atomic<int> runs = 0;
    std::promise<void> leaving;
    const auto run = [&] { serve([&] { ++runs, leaving.get_future().wait(); }); };
    EXPECT_THAT(run, fails("QoS 0"));
    broker.send("s", "?", asked("clients/7/reply"));
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(runs, 0);
    script("subscribe s", reason(1));
    run();
    client->show_presence();
    broker.send("system/vard/unit", "online", {}, true);
    broker.send("system/vard/unit", "offline", {}, true);
    EXPECT_TRUE(broker.await([this] { return broker.packets.size() == 5; }));
    broker.send("s", "?", asked("clients/7/reply"), true);
    broker.send("s", "?", asked("elsewhere"));
    broker.send("s", "runs", asked("clients/7/reply"));
    broker.send("s", "comes while it leaves", asked("clients/7/reply"));
    while (runs == 0) std::this_thread::sleep_for(milliseconds(5));
    std::this_thread::sleep_for(milliseconds(100));
    auto left = std::async(std::launch::async, [this] { client->disconnect(); });
    EXPECT_EQ(left.wait_for(milliseconds(100)), std::future_status::timeout);
    leaving.set_value();
    left.get();
    client->stop();
    EXPECT_EQ(runs, 1);
    EXPECT_THAT(broker.sent(),
                ElementsAre("subscribe s q1", "subscribe s q1", "subscribe system/vard/unit q1",
                            "publish system/vard/unit online retained q1",
                            "publish system/vard/unit online retained q1",
                            "publish clients/7/reply ! q1", "disconnect"));
}

TEST_F(Transport, ServesClientsInTurnAndWaitsForItsRepliesBeforeItDisconnects) {
    connected();
    script("subscribe s", reason(1));
    script("publish clients/", std::nullopt);
    std::promise<void> all_sent;
    serve([waiting = all_sent.get_future().share()] { waiting.wait(); });
    for (int n = 0; n < 3; ++n) broker.send("s", "?", asked("clients/6/reply"));
    broker.send("s", "?", asked("clients/7/reply"));
    std::this_thread::sleep_for(milliseconds(100));
    all_sent.set_value();
    EXPECT_TRUE(broker.await([this] { return broker.packets.size() == 5; }));
    EXPECT_THAT(broker.sent(), Contains("publish clients/7/reply ! q1"));
    EXPECT_EQ(broker.sent().back(), "publish clients/6/reply ! q1");
    auto leaving = std::async(std::launch::async, [this] { client->disconnect(); });
    EXPECT_EQ(leaving.wait_for(milliseconds(100)), std::future_status::timeout);
    for (const int packet : {2, 3, 4, 5}) broker.acknowledge(packet);
    EXPECT_EQ(leaving.wait_for(milliseconds(1000)), std::future_status::ready);
    EXPECT_EQ(broker.sent().back(), "disconnect");
}

/// What happens while the connection is being opened again, and the packets that this sends.
TEST_F(Transport, LeavesAndStopsWhileItReconnects) {
    std::future<void> stopped;
    const auto stop = [this] { client->stop(); };
    const std::pair<std::function<void()>, std::vector<std::string>> table[] = {
        {[this] { client->disconnect(); }, {"disconnect"}},
        {[&] { stopped = std::async(std::launch::async, stop); }, {}},
        {[] { throw lapi_mqtt::MqttError("refused"); }, {"subscribe a q0", announced + "a q1"}},
    };
    for (const auto& [action, packets] : table) {
        broker.on_open = nullptr;
        connected();
        client->subscribe("a", 0, std::make_shared<Silent>());
        const auto before = broker.sent().size();
        std::atomic<bool> is_first{true};
        broker.on_open = [&is_first, action = action] {
            if (!is_first.exchange(false)) return;
            action();
            std::this_thread::sleep_for(milliseconds(50));
        };
        broker.cut();
        const auto count = before + packets.size();
        EXPECT_TRUE(broker.await([&] { return !is_first && broker.packets.size() >= count; }));
        std::this_thread::sleep_for(milliseconds(100));
        const auto sent = broker.sent();
        EXPECT_THAT(std::vector(sent.begin() + static_cast<long>(before), sent.end()),
                    testing::ElementsAreArray(packets));
        if (stopped.valid()) stopped.get();
        client.reset();
    }
}

TEST_F(Transport, RenewsWhatItHadOnANewConnection) {
    connected(true);
    script("subscribe", reason(1));
    serve();
    client->subscribe("a", 1, std::make_shared<Silent>());
    client->subscribe("b", 2 + ecu::lapi::com::WATCH_ONLY, std::make_shared<Silent>());
    client->show_presence();
    EXPECT_THROW(client->request("t", text("?")), TransportError);
    broker.cut();
    EXPECT_TRUE(broker.await([this] { return broker.packets.size() == 14; }));
    EXPECT_THAT(std::vector(broker.packets.begin() + 8, broker.packets.end()),
                ElementsAre("subscribe s q1", "subscribe a q1", announced + "a q1",
                            "subscribe b retained q2", "subscribe system/vard/unit q1",
                            "publish system/vard/unit online retained q1"));
    EXPECT_THROW(client->request("t", text("?")), TransportError);
    EXPECT_THAT(broker.sent()[14], HasSubstr("subscribe clients/"));
}

}  // namespace

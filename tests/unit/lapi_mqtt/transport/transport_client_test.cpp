#include "lapi_mqtt/transport/transport_client.h"

#include <gmock/gmock.h>

#include <future>

#include "scripted_connection.h"

namespace {

using ecu::lapi::com::Message;
using lapi_mqtt::Reason;
using lapi_mqtt::TransportError;
using std::chrono::milliseconds;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using Packets = std::vector<fake::Packet>;

Message text(const std::string& bytes, char qos = '\0') {
    Message message({bytes.begin(), bytes.end()});
    message.qos = static_cast<std::uint8_t>(qos);
    return message;
}

/// Notes the topics of what it gets.
struct Observer : ecu::lapi::com::ISubscriptionObserver {
    void message(const std::string& topic, const Message&) override { topics.push_back(topic); }
    std::vector<std::string> topics;
};

/// A request's properties.
lapi_mqtt::PublishProperties asked(const char* response_topic, const char* correlation = "c") {
    return {response_topic, correlation, "", milliseconds(900), std::nullopt};
}

auto fails(const char* words) {
    return testing::ThrowsMessage<TransportError>(HasSubstr(words));
}

struct Transport : testing::Test {
    Transport() {
        settings.host = "unit";
        settings.port = 1883;
        settings.client_name = "test";
        settings.request_timeout = milliseconds(300);
    }
    ~Transport() override { client.reset(); }

    void connect(bool is_service = false) {
        const auto make = [this](auto& events) {
            return std::make_unique<fake::ScriptedConnection>(broker, events);
        };
        client = std::make_unique<lapi_mqtt::TransportClient>(settings, is_service, make);
        client->connect();
        client->start();
    }
    /// Answers requests with themselves.
    void serve(std::function<void()> action = [] {}) {
        client->serve("s", [action](const Message& request) {
            action();
            return Message(request.payload);
        });
    }
    /// What was sent from the n-th packet on.
    Packets sent_from(std::size_t n) {
        const auto sent = broker.sent();
        return {sent.begin() + static_cast<std::ptrdiff_t>(n), sent.end()};
    }

    lapi_mqtt::Settings settings;
    fake::Broker broker;
    std::unique_ptr<lapi_mqtt::TransportClient> client;
    const std::shared_ptr<Observer> observer = std::make_shared<Observer>();
    const std::string announced = "publish subscription/announcement ";
};

TEST_F(Transport, SendsARequestWhenTheReplyTopicIsGrantedAndNotBefore) {
    settings.topic_prefix = "units/7/";
    connect();
    broker.script("publish units/7/t", std::nullopt);
    broker.script("subscribe clients/", std::nullopt);
    const auto request = [this] { client->request("t", text("?")); };
    EXPECT_THAT(request, fails("/reply on the broker at unit:1883: the broker does not answer"));
    ASSERT_EQ(broker.sent().size(), 2U);
    const std::string reply_topic = broker.sent().back().substr(10, 35);
    broker.script("subscribe clients/", Reason{0x87, "Not authorized (ask the admin)"});
    EXPECT_THAT(request, fails("Not authorized (ask the admin)"));
    broker.script("subscribe clients/", Reason{1, ""});
    const auto start = std::chrono::steady_clock::now();
    std::thread unrelated([&] {  // as many as there are, none of them stretches the wait
        for (int n = 0; n < 50; ++n, std::this_thread::sleep_for(milliseconds(10))) {
            broker.bytes_received += 100'000;
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

TEST_F(Transport, GivesAMessageOnceToAnObserverWhileItsSubscriptionLasts) {
    connect();
    const auto other = std::make_shared<Observer>();
    broker.script("subscribe no", Reason{0x8f, "Topic filter invalid"});
    EXPECT_THAT([this] { client->subscribe("no", 0, observer); }, fails("Topic filter"));
    for (const auto* filter : {"a/#", "a/+", "a/b", "gone", "#"})
        client->subscribe(filter, 1, observer);
    for (const auto* filter : {"a/b", "$share/g/+/c"}) client->subscribe(filter, 2, other);
    client->unsubscribe("a/b", observer);  // the broker is still to send it
    client->unsubscribe("gone", observer);
    client->unsubscribe("gone", observer);
    client->unsubscribe("#", observer);
    EXPECT_THAT(sent_from(16), ElementsAre("unsubscribe gone", "unsubscribe #"));
    for (const auto* topic : {"no", "a/b", "a/c", "a", "gone", "b"}) broker.send(topic, "");
    std::promise<void> last;
    client->publish("x", text(""), [&last](bool) { last.set_value(); });
    last.get_future().wait();
    client->stop();
    EXPECT_EQ(broker.sent().back(), "abort");
    EXPECT_THAT(observer->topics, ElementsAre("a/b", "a/c", "a"));
    EXPECT_THAT(other->topics, ElementsAre("a/b", "a/c"));
    EXPECT_EQ(observer.use_count(), 3);  // those of a/# and a/+
}

TEST_F(Transport, RemembersALostPublicationWhateverFollows) {
    connect();
    client->subscribe("a", 1 + ecu::lapi::com::WATCH_ONLY, observer);
    client->publish("x", text("sure", '2'));
    broker.sent(3);
    broker.script(announced + "lost", std::nullopt);
    client->publish("lost", text("1"));
    broker.cut();
    broker.sent(7);  // connected and subscribed again
    client->publish("later", text("2"));
    EXPECT_THAT([this] { client->disconnect(); }, fails("publish on lost"));
    EXPECT_THAT(sent_from(2),
                ElementsAre("publish x sure q2", "publish lost 1 q0", announced + "lost q1",
                            "connect", "subscribe a retained q1", "publish later 2 q0",
                            announced + "later q1", "disconnect"));
}

TEST_F(Transport, TellsWhatBecameOfAMessage) {
    connect();
    broker.script("publish refused", Reason{0x87, ""});
    broker.script("publish lost", std::nullopt);
    std::vector<std::promise<bool>> told(3);
    const auto publish = [&](const char* topic, std::promise<bool>& outcome) {
        client->publish(topic, text(""), [&outcome](bool ack) { outcome.set_value(ack); });
    };
    publish("acknowledged", told[0]);
    publish("refused", told[1]);
    publish("lost", told[2]);
    EXPECT_TRUE(told[0].get_future().get());
    EXPECT_FALSE(told[1].get_future().get());
    broker.cut();
    EXPECT_FALSE(told[2].get_future().get());
    EXPECT_EQ(sent_from(1).front(), "publish acknowledged  q1");
}

TEST_F(Transport, ServesOnlyWhatCanBeAskedAndCorrectsItsPresence) {
    connect(true);
    broker.script("subscribe s", Reason{});
    std::atomic<int> runs = 0;
    std::promise<void> leaving;
    const auto run = [&] { serve([&] { ++runs, leaving.get_future().wait(); }); };
    EXPECT_THAT(run, fails("QoS 0"));
    broker.send("s", "?", asked("clients/7/reply"));
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(runs, 0);
    broker.script("subscribe s", Reason{1, ""});
    run();
    client->show_presence();
    broker.send("system/vard/unit", "online", {}, true);
    broker.send("system/vard/unit", "offline", {}, true);
    broker.sent(6);
    broker.send("s", "retained", asked("clients/7/reply"), true);
    for (const auto* nowhere : {"elsewhere", "", "clients/+/reply", "clients/#"}) {
        broker.send("s", "?", asked(nowhere));
    }
    broker.send("s", "?", asked("clients/7/reply", ""));
    broker.send("s", "runs", asked("clients/7/reply"));
    broker.send("s", "comes while it leaves", asked("clients/7/reply"));
    while (runs == 0) std::this_thread::sleep_for(milliseconds(5));
    std::this_thread::sleep_for(milliseconds(100));
    auto left = std::async(std::launch::async, [this] { client->disconnect(); });
    EXPECT_EQ(left.wait_for(milliseconds(100)), std::future_status::timeout);
    leaving.set_value();
    left.get();
    const auto publish_late = [this] { client->publish("late", text("")); };
    EXPECT_THAT(publish_late, fails("publish on late on the broker at unit:1883: disconnected"));
    client->stop();
    EXPECT_EQ(runs, 1);
    EXPECT_THAT(sent_from(1),
                ElementsAre("subscribe s q1", "subscribe s q1", "subscribe system/vard/unit q1",
                            "publish system/vard/unit online retained q1",
                            "publish system/vard/unit online retained q1",
                            "publish clients/7/reply runs q1", "disconnect"));
}

TEST_F(Transport, ServesClientsInTurnAndWaitsForItsRepliesBeforeItDisconnects) {
    connect();
    broker.script("publish clients/", std::nullopt);
    std::promise<void> all_sent;
    serve([waiting = all_sent.get_future().share()] { waiting.wait(); });
    for (int n = 0; n < 3; ++n) broker.send("s", "?", asked("clients/6/reply"));
    broker.send("s", "?", asked("clients/7/reply"));
    std::this_thread::sleep_for(milliseconds(100));
    all_sent.set_value();
    EXPECT_THAT(broker.sent(6), Contains("publish clients/7/reply ? q1"));
    EXPECT_EQ(broker.sent().back(), "publish clients/6/reply ? q1");
    auto leaving = std::async(std::launch::async, [this] { client->disconnect(); });
    EXPECT_EQ(leaving.wait_for(milliseconds(100)), std::future_status::timeout);
    for (const int packet : {3, 4, 5, 6}) broker.acknowledge(packet);
    EXPECT_EQ(leaving.wait_for(milliseconds(1000)), std::future_status::ready);
    EXPECT_EQ(broker.sent().back(), "disconnect");
}

/// What happens while the connection is being opened again, and the packets that this sends.
TEST_F(Transport, LeavesAndStopsWhileItReconnects) {
    const std::pair<std::function<void()>, Packets> table[] = {
        {[this] { client->disconnect(); }, {"connect", "disconnect"}},
        {[this] { client->stop(); }, {"connect"}},
        {{}, {"connect", "connect", "subscribe a q0", announced + "a q1"}},  // at first refused
    };
    for (const auto& [action, packets] : table) {
        broker.on_open = nullptr;
        connect();
        client->subscribe("a", 0, observer);
        const auto before = broker.sent().size();
        std::promise<void> acting;
        std::atomic<bool> refuses = !action;
        broker.on_open = [&refuses, acted = acting.get_future().share()] {
            acted.wait_for(milliseconds(300));
            if (refuses.exchange(false)) throw lapi_mqtt::MqttError("refused");
        };
        broker.cut();
        broker.sent(before + 1);
        if (action) action();
        acting.set_value();
        broker.sent(before + packets.size());
        std::this_thread::sleep_for(milliseconds(100));
        EXPECT_EQ(sent_from(before), packets);
        client.reset();
    }
}

TEST_F(Transport, RenewsWhatItHadOnANewConnection) {
    connect(true);
    serve();
    client->subscribe("a", 1, observer);
    client->subscribe("b", 2 + ecu::lapi::com::WATCH_ONLY, observer);
    client->show_presence();
    EXPECT_THROW(client->request("t", text("?")), TransportError);
    broker.cut();
    broker.sent(16);
    EXPECT_THAT(sent_from(9),
                ElementsAre("connect", "subscribe s q1", "subscribe a q1", announced + "a q1",
                            "subscribe b retained q2", "subscribe system/vard/unit q1",
                            "publish system/vard/unit online retained q1"));
    EXPECT_THROW(client->request("t", text("?")), TransportError);
    EXPECT_THAT(sent_from(16).front(), HasSubstr("subscribe clients/"));
}

}  // namespace

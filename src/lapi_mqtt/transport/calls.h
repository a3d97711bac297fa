#pragma once

#include <map>
#include <optional>
#include <string>

#include "lapi_mqtt/transport/link.h"

namespace lapi_mqtt {

/// Requests and their replies: each reply finds its request by correlation data.
class Calls {
public:
    using Message = ecu::lapi::com::Message;

    /// Replies come on `reply_topic`, each within `reply_time_out` as long as nothing moves.
    Calls(Link& to_broker, std::string reply_topic, std::chrono::milliseconds reply_time_out);

    /// Sends a request on a topic and waits for its reply. Throws TransportError.
    Message request(const std::string& topic, const Message& message);

    /// Takes a message on the reply topic; false when it answers no request under way.
    bool take(Incoming& reply);

    /// The reply topic is to be subscribed again. Called with the link's lock held.
    void connection_lost() { is_subscribed = false; }

    const std::string& reply_topic() const { return topic_of_replies; }

private:
    /// A request under way, for as long as it is waited for.
    class UnderWay;

    void subscribe_replies(Link::Lock& lock, const Step& step);
    Message await_reply(Link::Lock& lock, const Awaited& word, std::optional<Incoming>& reply,
                        std::uint64_t taken_end, const Step& step);

    Link& link;
    const std::string topic_of_replies;
    const std::chrono::milliseconds time_out;

    // Guarded by the link's lock.
    std::map<std::string, std::optional<Incoming>> replies;  ///< by correlation data
    bool is_subscribed = false;
};

}  // namespace lapi_mqtt

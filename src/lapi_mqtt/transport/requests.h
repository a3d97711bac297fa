#pragma once

#include <memory>
#include <optional>
#include <string>

#include "lapi_mqtt/link/link.h"

namespace lapi_mqtt {

/// Requests, one at a time, and their replies, which are told by correlation data.
class Requests {
public:
    using Message = ecu::lapi::com::Message;

    /// Replies come on `reply_topic`; `reply_timeout` is the idle timeout of each.
    Requests(Link& to_broker, std::string reply_topic, std::chrono::milliseconds reply_timeout);

    /// Sends a request on a topic and waits for its reply. Throws TransportError.
    Message request(const std::string& topic, const Message& message);

    /// Accepts a message on the reply topic, by moving from it; false, and nothing moved, when it
    /// answers no pending request.
    bool accept(Incoming& reply);

    const std::string& reply_topic() const { return topic_of_replies; }

private:
    /// A request that is waited for.
    struct Pending {
        std::string correlation;
        Outcome ack;
        std::optional<Incoming> reply;
    };

    Message wait_for_reply(Link::Lock& lock, Pending& request, std::uint64_t send_end,
                           const Step& step);
    std::string missing_reply(Link::WaitEnd end, std::int64_t waited_ms) const;

    Link& link;
    const std::string topic_of_replies;
    const std::chrono::milliseconds timeout;

    // Guarded by the link's lock.
    std::weak_ptr<Pending> pending;         ///< there is one at most
    std::optional<unsigned> subscribed_on;  ///< the generation of the link
};

}  // namespace lapi_mqtt

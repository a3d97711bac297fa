#include "lapi_mqtt/transport/publications.h"

#include "ecu/lapi/logging.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;
using std::chrono::milliseconds;
using Kind = Link::Kind;

/// How long a publication may rest: a link may be slow, and buffers on it may have to drain.
constexpr milliseconds PUBLISH_PATIENCE{20'000};
constexpr milliseconds LONGEST_PUBLICATION = std::chrono::hours(1);

}  // namespace

void Publications::add(const Link::Lock& lock, const std::string& topic, std::size_t size,
                       int proof, bool is_own_word) {
    ++unproven;
    last_topic = topic;
    taken_end = link.taken_behind(lock, size);
    link.expect(lock, proof, [this, topic, is_own_word](const Outcome& outcome) {
        settle(topic, outcome, is_own_word);
    });
}

/// Called with the link's lock held.
void Publications::settle(const std::string& topic, const Outcome& outcome, bool is_own_word) {
    --unproven;
    std::optional<Failure> failure;
    if (!outcome) {
        failure = {Kind::outcome_unknown, topic,
                   "the connection went before the broker had taken the message"};
    } else if (outcome->says_nobody_listens()) {
        logging::write(logging::WARNING, "No unit listens on the broker at ", link.place(),
                       ": the message on ", topic, " has reached nobody");
    } else if (outcome->is_refusal() && is_own_word) {
        failure = {Kind::failed, topic, outcome->text};
    } else if (outcome->is_refusal()) {
        logging::write(logging::WARNING, "The broker at ", link.place(),
                       " refuses announcements: ", outcome->text);
    } else {
        logging::write(logging::DEBUG, "The broker has taken the message on ", topic);
    }
    if (!first_failure) first_failure = failure;
}

void Publications::await_taken(Link::Lock& lock) {
    const auto end = link.wait(lock, {PUBLISH_PATIENCE, LONGEST_PUBLICATION}, taken_end,
                               [this] { return unproven == 0; });
    if (first_failure) {
        const Failure failure = *first_failure;
        const bool is_lost = failure.kind == Kind::outcome_unknown;
        link.fail(failure.kind, {"publish on", failure.topic},
                  is_lost ? link.down_cause(lock) + ", before the broker had taken the message"
                          : failure.cause);
    }
    if (end == Link::WaitEnd::out_of_patience) {
        link.abort(lock);  // else the rest of the message would hold up the goodbye
        link.fail(Kind::outcome_unknown, {"publish on", last_topic},
                  "the connection stalled before the broker had taken the message");
    }
}

}  // namespace lapi_mqtt

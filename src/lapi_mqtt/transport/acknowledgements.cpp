#include "lapi_mqtt/transport/acknowledgements.h"

#include <utility>

namespace lapi_mqtt {

void Acknowledgements::expect(int packet_id, Handler handler) {
    handlers[packet_id] = std::move(handler);
}

std::shared_ptr<const Awaited> Acknowledgements::expect(int packet_id) {
    auto awaited = std::make_shared<Awaited>();
    expect(packet_id, [awaited](const Outcome& outcome) { *awaited = {true, outcome}; });
    return awaited;
}

bool Acknowledgements::take(int packet_id, const Reason& reason) {
    const auto found = handlers.extract(packet_id);
    if (found.empty()) return false;
    found.mapped()(reason);
    return true;
}

void Acknowledgements::connection_lost() {
    for (const auto& [packet_id, handler] : std::exchange(handlers, {})) handler(std::nullopt);
}

}  // namespace lapi_mqtt

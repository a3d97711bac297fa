#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "lapi_mqtt/mqtt/error.h"

namespace lapi_mqtt {

/// The broker's reason; nothing when the connection went before it had said any.
using Outcome = std::optional<Reason>;

/// An outcome that somebody waits for.
struct Awaited {
    bool is_here = false;
    Outcome outcome;
};

/// Who waits for the acknowledgement of which packet of the present connection. Only records:
/// guarded by the link's lock, under which handlers are called, each once.
class Acknowledgements {
public:
    using Handler = std::function<void(const Outcome& outcome)>;

    void expect(int packet_id, Handler handler);
    std::shared_ptr<const Awaited> expect(int packet_id);

    /// False when nobody waits for it.
    bool take(int packet_id, const Reason& reason);

    /// Tells everybody: each connection counts its packets anew.
    void connection_lost();

private:
    std::map<int, Handler> handlers;  ///< by packet id
};

}  // namespace lapi_mqtt

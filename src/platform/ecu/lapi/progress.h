#pragma once

#include <cstdint>

/// How far a transfer is: an extra that a platform library need not have.
namespace ecu::lapi::com {

struct Transfer {
    std::uint64_t done = 0;   ///< bytes
    std::uint64_t total = 0;  ///< bytes; 0 where that is not known
};

/// What a transport client may also be: found by dynamic_cast.
class ITransferProgress {
public:
    virtual ~ITransferProgress() = default;

    /// The request or publication that is going out, else what is coming in. Any thread may ask.
    virtual Transfer transfer() const = 0;
};

}  // namespace ecu::lapi::com

#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <string>

#include "ecu/lapi/com.h"

/// Client of the unit's secure store: one blob of any bytes, which travels over two topics.
///
/// Used by one thread, but for `message`. Receives at most once: a second `get_data` throws
/// std::future_error.
class SecStore : public ecu::lapi::com::ISubscriptionObserver {
public:
    /// Shares `transport`, which must be connected and started when the store is used.
    explicit SecStore(std::shared_ptr<ecu::lapi::com::ITransportClient>& transport);

    /// Waits at most 10 seconds for the blob. Returns it, or an empty string when none came; the
    /// store owns it. Throws what `subscribe` throws.
    const std::string& get_data();

    /// Publishes a new blob. Throws what `publish` throws.
    void set_data(const std::string& new_blob);

    /// Takes the first blob that arrives and drops any further one. Called on the delivery thread.
    void message(const std::string& topic, const ecu::lapi::com::Message& msg) override;

    /// The file's bytes; empty when it cannot be opened or read. What was read before an error
    /// counts as its content.
    static std::string read_file_to_str(const std::string& path);

private:
    std::promise<std::string> blob_promise;
    std::string blob;
    std::shared_ptr<ecu::lapi::com::ITransportClient> client;
    std::atomic<bool> handed_over{false};
};

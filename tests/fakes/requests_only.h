#pragma once

#include "ecu/lapi/com.h"

namespace fake {

/// A transport on which only `request` does anything.
struct RequestsOnly : ecu::lapi::com::ITransportClient {
    using Message = ecu::lapi::com::Message;
    using Observer = std::shared_ptr<ecu::lapi::com::ISubscriptionObserver>;
    void connect() override {}
    void disconnect() override {}
    void publish(const std::string&, const Message&) override {}
    void publish(const std::string&, const Message&, ecu::lapi::com::TakenHandler) override {}
    void subscribe(const std::string&, int, Observer) override {}
    void unsubscribe(const std::string&, Observer) override {}
    void serve(const std::string&, ecu::lapi::com::RequestHandler) override {}
    void set_presence(ecu::lapi::com::Presence) override {}
    void show_presence() override {}
    void report_transfers(ecu::lapi::com::TransferHook) override {}
    void start() override {}
    void stop() override {}
};

}  // namespace fake

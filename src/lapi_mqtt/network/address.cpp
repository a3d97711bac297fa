#include "lapi_mqtt/network/address.h"

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>

namespace lapi_mqtt {
namespace {

using Addresses = std::vector<std::string>;

/// How soon a cancelled look-up ends.
constexpr std::chrono::milliseconds POLL_INTERVAL{20};

std::string literal_of(const addrinfo& entry) {
    std::array<char, NI_MAXHOST> text{};
    const int failure = getnameinfo(entry.ai_addr, entry.ai_addrlen, text.data(), text.size(),
                                    nullptr, 0, NI_NUMERICHOST);
    return failure == 0 ? text.data() : "";
}

/// What a look-up found, or why it found nothing.
struct Found {
    Addresses addresses;
    std::string cause;
};

Found look_up(const std::string& host, int flags) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* list = nullptr;
    const int failure = getaddrinfo(host.c_str(), nullptr, &hints, &list);
    if (failure != 0) {
        return {{}, failure == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(failure)};
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(list, freeaddrinfo);
    Addresses found;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        const std::string literal = literal_of(*entry);
        if (std::find(found.begin(), found.end(), literal) == found.end()) found.push_back(literal);
    }
    return {found, {}};
}

}  // namespace

Addresses resolve(const std::string& host, const ConnectLimit& limit) {
    Found found = look_up(host, AI_NUMERICHOST);
    if (!found.addresses.empty()) return found.addresses;
    // The system's look-up has no timeout, so it gets a thread that may be left behind.
    std::packaged_task<Found()> task([host] { return look_up(host, 0); });
    auto result = task.get_future();
    std::thread(std::move(task)).detach();
    while (result.wait_for(POLL_INTERVAL) != std::future_status::ready) {
        if (limit.has_passed()) throw std::runtime_error("the look-up of the name takes too long");
    }
    found = result.get();
    if (found.addresses.empty()) throw std::runtime_error(found.cause);
    return found.addresses;
}

}  // namespace lapi_mqtt

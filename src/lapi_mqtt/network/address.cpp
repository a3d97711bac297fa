#include "lapi_mqtt/network/address.h"

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <future>
#include <memory>
#include <thread>

namespace lapi_mqtt {
namespace {

/// How soon a cancelled look-up ends.
constexpr std::chrono::milliseconds POLL_INTERVAL{20};

/// What a look-up found, or why it found nothing.
struct Found {
    std::vector<std::string> addresses;
    std::string cause;
};

std::string literal_of(const addrinfo& entry) {
    std::array<char, NI_MAXHOST> text{};
    const int failure = getnameinfo(entry.ai_addr, entry.ai_addrlen, text.data(), text.size(),
                                    nullptr, 0, NI_NUMERICHOST);
    return failure == 0 ? text.data() : "";
}

Found look_up(const std::string& host, int flags) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* list = nullptr;
    errno = 0;
    const int failure = getaddrinfo(host.c_str(), nullptr, &hints, &list);
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(list, freeaddrinfo);
    Found found;
    if (failure != 0) {
        found.cause = failure == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(failure);
    }
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        const std::string literal = literal_of(*entry);
        auto& all = found.addresses;
        if (std::find(all.begin(), all.end(), literal) == all.end()) all.push_back(literal);
    }
    return found;
}

/// The system's look-up has no timeout, so it gets a thread that may be left behind.
Found look_up_until(const std::string& host, const ConnectLimit& limit) {
    std::promise<Found> promise;
    auto found = promise.get_future();
    std::thread([host, promise = std::move(promise)]() mutable {
        promise.set_value(look_up(host, 0));
    }).detach();
    while (found.wait_for(POLL_INTERVAL) != std::future_status::ready) {
        if (limit.has_passed()) throw NetworkError("the look-up of the name takes too long");
    }
    return found.get();
}

}  // namespace

std::vector<std::string> resolve(const std::string& host, const ConnectLimit& limit) {
    Found found = look_up(host, AI_NUMERICHOST);
    if (found.addresses.empty()) found = look_up_until(host, limit);
    if (found.addresses.empty()) throw NetworkError(found.cause);
    return found.addresses;
}

}  // namespace lapi_mqtt

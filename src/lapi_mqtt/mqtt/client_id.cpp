#include "lapi_mqtt/mqtt/client_id.h"

#include <sys/random.h>

#include <cerrno>
#include <system_error>

namespace lapi_mqtt {

std::string random_bytes(std::size_t count) {
    std::string bytes(count, '\0');
    // Up to 256 bytes come whole or not at all.
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(count)) {
        throw std::system_error(errno, std::generic_category(), "no random bytes");
    }
    return bytes;
}

std::string make_client_id(const std::string& client_name) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string id = client_name + "-";
    for (const char byte : random_bytes(8)) {
        const auto value = static_cast<unsigned char>(byte);
        id += DIGITS[value >> 4U];
        id += DIGITS[value & 0xfU];
    }
    return id;
}

}  // namespace lapi_mqtt

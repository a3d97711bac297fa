#include "lapi_mqtt/config/exposure.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/stat.h>

#include <string>
#include <utility>

#include "ecu/lapi/logging.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;

/// By name alone: what another name resolves to may change until it is connected to.
bool is_loopback(const std::string& host) {
    in6_addr ipv6{};
    if (inet_pton(AF_INET6, host.c_str(), &ipv6) == 1) return IN6_IS_ADDR_LOOPBACK(&ipv6);
    in_addr ipv4{};
    if (inet_pton(AF_INET, host.c_str(), &ipv4) == 1) {
        return ntohl(ipv4.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET;
    }
    return strcasecmp(host.c_str(), "localhost") == 0;
}

void warn_of_readers(const char* what, const std::string& path) {
    struct stat status {};
    if (path.empty() || stat(path.c_str(), &status) != 0) return;
    if ((status.st_mode & (S_IRGRP | S_IROTH)) == 0) return;
    logging::write(logging::WARNING, "Other users can read the ", what, " '", path,
                   "': its mode should be 0600");
}

}  // namespace

void warn_of_exposed_secrets(const Settings& settings) {
    static bool has_warned = false;  // a program may make several clients of one configuration
    if (std::exchange(has_warned, true)) return;
    warn_of_readers("password file", settings.password_file);
    warn_of_readers("key file", settings.key_file);
    if (!settings.password_file.empty() && settings.ca_file.empty() &&
        !is_loopback(settings.host)) {
        logging::write(logging::WARNING, "The password goes to the broker at ", settings.place(),
                       " without TLS: everyone on the way can read it; ca_file turns TLS on");
    }
}

}  // namespace lapi_mqtt

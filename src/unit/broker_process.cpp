#include "unit/broker_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <poll.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "program/poll_until.h"

namespace unit {
namespace {

using program::Descriptor;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds PORT_TIMEOUT{2'000};
constexpr milliseconds START_TIMEOUT{10'000};
constexpr milliseconds END_TIMEOUT{5'000};

/// Calls bind(2) or connect(2) with the port of the loopback interface; 0, or the error's number.
int try_port(int (*operation)(int, const sockaddr*, socklen_t), int port) {
    const Descriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    setsockopt(probe.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto* const place = reinterpret_cast<const sockaddr*>(&address);
    return operation(probe.get(), place, sizeof address) == 0 ? 0 : errno;
}

[[noreturn]] void fail(int port, const std::string& cause) {
    throw std::runtime_error("cannot start a broker on 127.0.0.1:" + std::to_string(port) + ": " +
                             cause);
}

void write_configuration(int file, int port) {
    const int written = dprintf(file,
                                "listener %d 127.0.0.1\n"
                                "allow_anonymous true\n"
                                "max_packet_size 268435455\n"
                                "set_tcp_nodelay true\n"
                                "persistence false\n"
                                "log_dest stderr\n"
                                "log_type error\n",
                                port);
    if (written < 0) fail(port, std::strerror(errno));
}

/// Mosquitto gives up root by itself, but then it would no longer end with us: a change of user
/// clears PR_SET_PDEATHSIG.
void leave_root() {
    if (geteuid() != 0) return;
    const passwd* user = getpwnam("mosquitto");
    if (user == nullptr) user = getpwnam("nobody");
    if (user == nullptr || setgroups(0, nullptr) != 0 || setgid(user->pw_gid) != 0 ||
        setuid(user->pw_uid) != 0) {
        _exit(EXIT_FAILURE);
    }
}

[[noreturn]] void become_broker(int configuration, pid_t parent) {
    // A process group of its own: Ctrl-C reaches only us, and we end the broker.
    setpgid(0, 0);
    leave_root();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(EXIT_FAILURE);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    const std::string path = "/proc/self/fd/" + std::to_string(configuration);
    execlp("mosquitto", "mosquitto", "-c", path.c_str(), nullptr);
    execl("/usr/sbin/mosquitto", "mosquitto", "-c", path.c_str(), nullptr);
    dprintf(STDERR_FILENO, "cannot run mosquitto: %s\n", std::strerror(errno));
    _exit(EXIT_FAILURE);
}

pid_t start_broker(int port) {
    // A broker that is on the port already would be mistaken for ours. One that a killed unit has
    // left behind ends soon.
    int error = 0;
    program::poll_until(PORT_TIMEOUT, [&] {
        error = try_port(bind, port);
        return error != EADDRINUSE;
    });
    if (error != 0) fail(port, std::strerror(error));
    // In memory, so that nothing is left behind however this process ends.
    const Descriptor configuration(memfd_create("mosquitto.conf", 0));
    write_configuration(configuration.get(), port);
    const pid_t parent = getpid();
    const pid_t process = fork();
    if (process == 0) become_broker(configuration.get(), parent);
    if (process < 0) fail(port, std::strerror(errno));
    return process;
}

}  // namespace

BrokerProcess::BrokerProcess(int port)
    : process(start_broker(port)), end(static_cast<int>(syscall(SYS_pidfd_open, process, 0))) {
    const auto deadline = steady_clock::now() + START_TIMEOUT;
    while (try_port(connect, port) != 0) {
        const bool ended = has_ended(program::POLL_INTERVAL);
        if (!ended && steady_clock::now() < deadline) continue;
        stop();
        fail(port, ended ? "mosquitto ended" : "mosquitto does not listen");
    }
}

BrokerProcess::~BrokerProcess() {
    stop();
}

void BrokerProcess::stop() {
    kill(process, SIGTERM);
    if (!has_ended(END_TIMEOUT)) kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

bool BrokerProcess::has_ended(milliseconds timeout) const {
    pollfd watched{end.get(), POLLIN, 0};
    return poll(&watched, 1, static_cast<int>(timeout.count())) > 0;
}

}  // namespace unit

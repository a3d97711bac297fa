#include "unit/broker_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
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
#include <system_error>
#include <thread>
#include <utility>

namespace unit {
namespace {

using program::Descriptor;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds PORT_PATIENCE{2'000};
constexpr milliseconds START_PATIENCE{10'000};
constexpr milliseconds END_PATIENCE{5'000};
constexpr milliseconds LOOK_EVERY{5};

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

Descriptor tcp_socket() {
    return Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

[[noreturn]] void fail(int port, const std::string& cause) {
    throw std::runtime_error("cannot start a broker on 127.0.0.1:" + std::to_string(port) + ": " +
                             cause);
}

bool is_free(int port) {
    const Descriptor probe = tcp_socket();
    const int on = 1;
    setsockopt(probe.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = loopback(port);
    return bind(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

/// Another broker on the port would be taken for ours; but one that a killed unit left is about to
/// end.
void await_free(int port) {
    const auto deadline = steady_clock::now() + PORT_PATIENCE;
    while (!is_free(port)) {
        if (errno != EADDRINUSE || steady_clock::now() >= deadline) {
            fail(port, std::strerror(errno));
        }
        std::this_thread::sleep_for(LOOK_EVERY);
    }
}

bool accepts(int port) {
    const Descriptor probe = tcp_socket();
    const sockaddr_in address = loopback(port);
    return connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

/// A file in memory: nothing to clean up, whatever ends us.
Descriptor configuration_file(int port) {
    const std::string text = "listener " + std::to_string(port) +
                             " 127.0.0.1\n"
                             "allow_anonymous true\n"
                             "max_packet_size 268435455\n"
                             "set_tcp_nodelay true\n"
                             "persistence false\n"
                             "log_dest stderr\n"
                             "log_type error\n";
    Descriptor file(memfd_create("mosquitto.conf", 0));
    if (write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::system_error(errno, std::generic_category(), "mosquitto.conf");
    }
    return file;
}

/// As root mosquitto would change its user by itself, and no longer end with us.
void leave_root() {
    if (geteuid() != 0) return;
    const passwd* user = getpwnam("mosquitto");
    if (user == nullptr) user = getpwnam("nobody");
    if (user == nullptr || setgroups(0, nullptr) != 0 || setgid(user->pw_gid) != 0 ||
        setuid(user->pw_uid) != 0) {
        _exit(EXIT_FAILURE);
    }
}

/// The two ends of a pipe; the child keeps the second one open for as long as it runs.
std::pair<Descriptor, Descriptor> life_line() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

[[noreturn]] void become_broker(int configuration, int life, pid_t parent) {
    // Its own process group: an interrupt from the terminal is for us to pass on.
    setpgid(0, 0);
    leave_root();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(EXIT_FAILURE);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    fcntl(life, F_SETFD, 0);
    const std::string path = "/proc/self/fd/" + std::to_string(configuration);
    execlp("mosquitto", "mosquitto", "-c", path.c_str(), nullptr);
    execl("/usr/sbin/mosquitto", "mosquitto", "-c", path.c_str(), nullptr);
    dprintf(STDERR_FILENO, "cannot run mosquitto: %s\n", std::strerror(errno));
    _exit(EXIT_FAILURE);
}

}  // namespace

BrokerProcess::BrokerProcess(int port) : BrokerProcess(port, life_line()) {}

BrokerProcess::BrokerProcess(int port, std::pair<Descriptor, Descriptor> life)
    : ended(std::move(life.first)) {
    await_free(port);
    const Descriptor configuration = configuration_file(port);
    const pid_t parent = getpid();
    process = fork();
    if (process < 0) throw std::system_error(errno, std::generic_category(), "mosquitto");
    if (process == 0) become_broker(configuration.get(), life.second.get(), parent);
    life.second.reset();

    const auto deadline = steady_clock::now() + START_PATIENCE;
    while (!accepts(port)) {
        const bool running = is_running();
        if (running && steady_clock::now() < deadline) {
            std::this_thread::sleep_for(LOOK_EVERY);
            continue;
        }
        end();
        fail(port, running ? "mosquitto does not listen" : "mosquitto ended");
    }
}

BrokerProcess::~BrokerProcess() {
    end();
}

void BrokerProcess::end() {
    if (!is_running()) return;
    kill(process, SIGTERM);
    const auto deadline = steady_clock::now() + END_PATIENCE;
    while (is_running()) {
        if (steady_clock::now() >= deadline) kill(process, SIGKILL);
        std::this_thread::sleep_for(LOOK_EVERY);
    }
}

bool BrokerProcess::is_running() {
    if (process > 0 && waitpid(process, nullptr, WNOHANG) != 0) process = -1;
    return process > 0;
}

}  // namespace unit

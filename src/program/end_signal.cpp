#include "program/end_signal.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace {

[[noreturn]] void fail(const char* step) {
    throw std::system_error(errno, std::generic_category(), step);
}

}  // namespace

EndSignal::EndSignal() : signals() {
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    descriptor = signalfd(-1, &signals, SFD_CLOEXEC);
    if (descriptor < 0) fail("signalfd");
}

EndSignal::~EndSignal() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    close(descriptor);
}

bool EndSignal::wait(int watched_descriptor, short events) {
    pollfd watched[] = {{descriptor, POLLIN, 0}, {watched_descriptor, events, 0}};
    while (poll(watched, 2, -1) < 0) {
        if (errno != EINTR) fail("poll");
    }
    if (watched[0].revents == 0) return false;
    signalfd_siginfo received;
    if (read(descriptor, &received, sizeof received) < 0) fail("read");
    return true;
}

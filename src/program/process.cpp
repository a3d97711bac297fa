#include "program/process.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <system_error>

namespace program {

void secure_standard_streams() {
    std::signal(SIGPIPE, SIG_IGN);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // What is opened gets the lowest free number, which is this one.
        if (fcntl(stream, F_GETFD) < 0) open("/dev/null", O_RDWR | O_CLOEXEC);
    }
}

void grow_heap_in_large_steps() {
#ifdef M_TOP_PAD  // not every C library can be asked
    constexpr int STEP_BYTES = 16 << 20;
    mallopt(M_TOP_PAD, STEP_BYTES);
#endif
}

void widen_standard_output() {
    // Not the buffer of std::cout: libstdc++ ignores what an open file is given.
    static char buffer[64 * 1024];
    std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
    if (isatty(STDOUT_FILENO) != 0) std::cout << std::unitbuf;
}

int attempt(const std::string& program, const std::function<int()>& step) {
    // In one write, since another thread may log meanwhile.
    try {
        return step();
    } catch (const std::exception& error) {
        std::cerr << program + ": " + error.what() + "\n";
    } catch (...) {
        std::cerr << program + ": an error of an unknown kind\n";
    }
    return EXIT_FAILURE;
}

void flush_standard_output() {
    if (std::cout.flush()) return;
    throw std::system_error(errno, std::generic_category(), "cannot write to standard output");
}

}  // namespace program

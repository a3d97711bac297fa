#include <unistd.h>

#include <iostream>

#include "main/run.h"
#include "program/startup.h"

namespace {

/// A full read prints some hundred bytes a parameter; small writes would cost as much as the rest.
/// On a terminal each block is to be seen when it is printed.
void widen_standard_output() {
    static char buffer[64 * 1024];
    std::ios::sync_with_stdio(false);
    std::cout.rdbuf()->pubsetbuf(buffer, sizeof buffer);
    if (isatty(STDOUT_FILENO) != 0) std::cout << std::unitbuf;
}

}  // namespace

int main(int argc, char** argv) {
    program::secure_standard_streams();
    widen_standard_output();
    program::grow_heap_in_large_steps();
    return korvid::run(argc, argv);
}

#include <iostream>

#include "main/run.h"
#include "main/startup.h"

namespace {

/// A full read prints some hundred bytes a parameter; small writes would cost as much as the rest.
void widen_standard_output() {
    static char buffer[64 * 1024];
    std::ios::sync_with_stdio(false);
    std::cout.rdbuf()->pubsetbuf(buffer, sizeof buffer);
}

}  // namespace

int main(int argc, char** argv) {
    secure_standard_streams();
    widen_standard_output();
    return run(argc, argv);
}

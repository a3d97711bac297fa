#include <iostream>

#include "program/startup.h"
#include "restore/run.h"

int main(int argc, char** argv) {
    program::grow_heap_in_large_steps();
    std::ios::sync_with_stdio(false);
    return restore::run(argc, argv);
}

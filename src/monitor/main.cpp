#include "monitor/run.h"

int main(int argc, char** argv) {
    return monitor::run(argc, argv);
}

#include "monitor/run.h"
#include "program/startup.h"

int main(int argc, char** argv) {
    secure_standard_streams();
    return run_monitor(argc, argv);
}

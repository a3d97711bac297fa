#include "main/startup.h"
#include "monitor/run.h"

int main(int argc, char** argv) {
    secure_standard_streams();
    return run_monitor(argc, argv);
}

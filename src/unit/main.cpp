#include "program/startup.h"
#include "unit/run.h"

int main(int argc, char** argv) {
    secure_standard_streams();
    return unit::run(argc, argv);
}

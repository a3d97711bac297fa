#include "main/run.h"
#include "main/startup.h"

int main(int argc, char** argv) {
    secure_standard_streams();
    return run(argc, argv);
}

#include "unit/run.h"

int main(int argc, char** argv) {
    return unit::run(argc, argv);
}

#include "json/run.h"

int main(int argc, char** argv) {
    return json::run(argc, argv);
}

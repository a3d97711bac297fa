#pragma once

#include <getopt.h>

#include "captured.h"

/// Calls a main function with a command line.
template <typename Main>
auto invoke(Main main, Strings words) {
    words.insert(words.begin(), "/usr/bin/invoked");
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    optind = 0;  // glibc then starts anew
    return main(static_cast<int>(words.size()), argv.data());
}

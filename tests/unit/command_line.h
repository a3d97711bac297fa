#pragma once

#include <unistd.h>

#include "captured.h"
#include "main/options.h"

/// Calls a main function with a command line, all options being at their defaults.
template <typename Main>
auto invoke(Main main, Strings words) {
    words.insert(words.begin(), "/usr/bin/invoked");
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    optind = 0;  // glibc then starts anew
    opt_loglevel = "WARNING";
    opt_host = opt_port = "";
    opt_payload = opt_payload_size = opt_qos = opt_timestamp = false;
    return main(static_cast<int>(words.size()), argv.data());
}

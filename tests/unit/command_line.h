#pragma once

#include <unistd.h>

#include <string>
#include <vector>

#include "main/options.h"

/// A command line as main gets it; building it sets the options back to their defaults.
class CommandLine {
public:
    explicit CommandLine(std::vector<std::string> arguments) : words(std::move(arguments)) {
        words.insert(words.begin(), "/usr/bin/invoked");
        for (auto& word : words) pointers.push_back(word.data());
        pointers.push_back(nullptr);
        optind = 0;  // glibc then starts anew
        opt_loglevel = "WARNING";
        opt_host = opt_port = "";
        opt_payload = opt_payload_size = opt_qos = opt_timestamp = false;
    }

    int argc() const { return static_cast<int>(words.size()); }
    char** argv() { return pointers.data(); }

private:
    std::vector<std::string> words;
    std::vector<char*> pointers;
};

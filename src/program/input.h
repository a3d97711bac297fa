#pragma once

#include <cstddef>
#include <string>

#include "program/descriptor.h"

namespace program {

/// How an error text calls the input that a command line names: a file, or standard input as "-".
std::string input_name(const std::string& argument);

/// That input.
class Input {
public:
    /// Waits for the writer of a pipe that has a name. Throws std::system_error.
    explicit Input(const std::string& argument);

    /// Waits for what comes next, at most `size` bytes. Returns how many, 0 at the end. Throws
    /// std::system_error.
    std::size_t read(char* buffer, std::size_t size);

private:
    const std::string name;
    const Descriptor descriptor;
};

}  // namespace program

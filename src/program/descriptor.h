#pragma once

#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace program {

/// A file descriptor, closed at the end.
class Descriptor {
public:
    /// Throws std::system_error, as errno says, when the opening has failed.
    explicit Descriptor(int opened) : number(opened) {
        if (number < 0) throw std::system_error(errno, std::generic_category());
    }
    Descriptor(const Descriptor&) = delete;
    ~Descriptor() { close(number); }

    int get() const { return number; }

private:
    const int number;
};

}  // namespace program

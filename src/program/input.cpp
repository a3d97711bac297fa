#include "program/input.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace program {
namespace {

[[noreturn]] void fail(const std::string& name) {
    throw std::system_error(errno, std::generic_category(), "cannot read " + name);
}

Descriptor open_input(const std::string& argument) {
    const int opened = argument == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                       : open(argument.c_str(), O_RDONLY | O_CLOEXEC);
    if (opened < 0) fail(input_name(argument));
    return Descriptor(opened);
}

}  // namespace

std::string input_name(const std::string& argument) {
    return argument == "-" ? "standard input" : argument;
}

Input::Input(const std::string& argument)
    : name(input_name(argument)), descriptor(open_input(argument)) {}

std::size_t Input::read(char* buffer, std::size_t size) {
    for (;;) {
        const ssize_t count = ::read(descriptor.get(), buffer, size);
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno != EINTR) fail(name);
    }
}

}  // namespace program

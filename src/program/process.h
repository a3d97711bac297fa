#pragma once

#include <functional>
#include <string>

/// What a program needs of its process; nothing of the platform library.
namespace program {

/// Opens /dev/null in place of each standard stream that the process was started without, so that
/// no connection to the broker gets its number; lets a reader of standard output go away without
/// ending the process. Call it first.
void secure_standard_streams();

/// For programs that read a whole unit, which fills the heap with small pieces: memory is requested
/// in few large steps, and used only when it is needed.
void grow_heap_in_large_steps();

/// For programs that print a line or block for each parameter: small writes would cost as much as
/// the rest. On a terminal each is to be seen when it is printed. Call it before anything is
/// printed.
void widen_standard_output();

/// Runs a step of `program` and returns the exit status that it returns; an exception becomes one
/// line on standard error, and EXIT_FAILURE.
int attempt(const std::string& program, const std::function<int()>& step);

/// Throws std::system_error unless all that was written to std::cout has been passed on.
void flush_standard_output();

}  // namespace program

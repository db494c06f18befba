// SPDX-License-Identifier: MIT
// Standard output. What a command prints is written at once, and a command whose output cannot be written
// ends.
#pragma once

#include <exception>
#include <string_view>

namespace norv::tool {

// Before anything is opened: a standard stream that is closed gets a descriptor that fails, which otherwise a
// device would get; and a reader that goes away is found by `print`, so that the command ends in good order.
void prepare_output();

// The pipe has no reader any longer.
class reader_gone : public std::exception {
  public:
    const char* what() const noexcept override { return "standard output: EPIPE: it has no reader"; }
};

// Throws a failure, or reader_gone, when not all of it is written.
void print(std::string_view text);

// Ends the program by SIGPIPE, as if it had not been held off; returns when the caller of the program ignores
// that signal.
void end_without_reader();

}  // namespace norv::tool

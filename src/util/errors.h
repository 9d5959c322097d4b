// The ways a run ends early. Thrown anywhere, caught only in the program's entry point, which
// turns each into its message and exit status.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace ictvcf {

// A stop that is part of the program's behaviour: the text (complete lines, each ending in a
// newline) goes to standard output as it stands, then the process exits with `status`.
struct StopRun : std::runtime_error {
  StopRun(std::string out_text, int exit_status)
      : std::runtime_error("stop"), out(std::move(out_text)), status(exit_status) {}
  std::string out;
  int status;
};

// A file that cannot be opened or read as the layout requires: one line on standard error
// naming the file, the line number (0: no line) and what was expected; exit status 2.
struct IoError : std::runtime_error {
  IoError(std::string file_name, long line_number, std::string expected)
      : std::runtime_error(expected), file(std::move(file_name)), line(line_number) {}
  std::string file;
  long line;
};

// Storage that cannot be obtained, or a store array allocated twice: a message on standard
// error and exit status 1.
struct FatalError : std::runtime_error {
  explicit FatalError(const std::string& message, int exit_status = 1)
      : std::runtime_error(message), status(exit_status) {}
  int status;
};

// The one-line rendering of an input/output error, as printed on standard error.
std::string describe(const IoError& e);

// Runs `body` and returns 0, or turns the error it ends with into its message (standard output
// for a described stop, standard error otherwise) and returns the exit status.
int guarded(const std::function<void()>& body);

}  // namespace ictvcf

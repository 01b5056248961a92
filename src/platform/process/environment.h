// The process's own surroundings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvane {

/// This process's id.
std::int32_t processId();

/// The value of an environment variable; empty when it is unset or empty.
std::string environmentValue(const char* name);

/// The columns of the terminal that standard output is; 0 if it is none, 80 if it does not say.
std::size_t terminalWidth();

/// Removes an environment variable, from the children's environment too. Only while the process has
/// no other threads.
void unsetVariable(const char* name);

/// Makes a write to a closed pipe or socket, or beyond the limit for the size of files, fail with
/// an error instead of ending the process.
void ignoreWriteSignals();

/// Opens /dev/null as standard input, output and error where the process was started without them,
/// so that no file or socket of ours ever gets one of their numbers.
void occupyStandardDescriptors();

}  // namespace orvane

// Process-wide state: id, environment, terminal, signals, standard descriptors.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvane {

/// This process's id.
std::int32_t processId();

/// The value of an environment variable; empty if it is unset or empty.
std::string environmentValue(const char* name);

/// The width of the terminal that standard output is; 0 if it is not one, 80 if unknown.
std::size_t terminalWidth();

/// Removes an environment variable, also from the environment of children. REQUIRES: no other
/// threads yet.
void unsetVariable(const char* name);

/// Makes a write to a closed pipe or socket, or beyond the file size limit, fail with an error
/// instead of killing the process.
void ignoreWriteSignals();

/// Opens /dev/null as standard input, output or error if the process was started without them, so
/// that no file or socket we open gets descriptor 0, 1 or 2.
void occupyStandardDescriptors();

}  // namespace orvane

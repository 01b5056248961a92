// Failures that somebody has met or will meet, each with its whole outcome.
#pragma once

#include "faults/cycle_model.h"

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

namespace orvane::test {

struct NamedFault {
    const char* name;
    CallKind kind;
    std::string path;       ///< as in Call::path; of all such calls of the cycle, the first fails
    std::string call = "";  ///< the system's name for it, where others are of the same kind
    int error = EIO;
    Lasting lasting = Lasting::once;
    std::function<void(Outcome&)> change = [](Outcome& /*good*/) {};  ///< to a good outcome

    /// Throws if there is no such call.
    [[nodiscard]] Fault in(const CycleModel& model) const;
};

std::vector<NamedFault> namedFaults(InitialState initial);

}  // namespace orvane::test

#include "daemon/policy_runner.h"
#include "platform/files.h"

#include <system_error>
#include <tuple>

namespace orvane {

namespace {

std::filesystem::path temporaryFor(std::filesystem::path destination) {
    destination += ".tmp";
    return destination;
}

std::error_code replaceFile(std::string_view data, const std::filesystem::path& destination) {
    const auto directory = destination.parent_path();
    if (!files::exists(directory)) {
        if (const auto error = files::createDirectories(directory)) {
            return error;
        }
    }
    const auto temporary = temporaryFor(destination);
    if (const auto error = files::writeAtomically(temporary, data)) {
        return error;
    }
    // As a rule on a first write there is nothing to remove; what cannot be removed fails the move.
    std::ignore = files::remove(destination);
    return files::move(temporary, destination);
}

}  // namespace

void PolicyRunner::atomicWrite(std::string_view data,
                               const std::filesystem::path& destination) const {
    if (const auto error = replaceFile(data, destination)) {
        logger.error("atomic write to %{public}s failed: %{public}s", destination.string(),
                     error.message());
    }
}

bool PolicyRunner::wasCutOff(const std::filesystem::path& destination) {
    return !files::exists(destination) && files::exists(temporaryFor(destination));
}

}  // namespace orvane

#include "daemon/atomic_write.h"

#include "platform/files/files.h"

namespace orvane {

namespace {

std::filesystem::path temporaryFor(std::filesystem::path destination) {
    destination += ".tmp";
    return destination;
}

/// Whether a move that ended with `error`, after a removal of its destination that ended with
/// `removal`, failed because of another process: it moved our file, or created the destination.
bool isDisturbance(const std::error_code& removal, const std::error_code& error) {
    constexpr auto nothingThere = std::errc::no_such_file_or_directory;
    const bool wasClear = !removal || removal == nothingThere;
    return error == nothingThere || (error == std::errc::file_exists && wasClear);
}

}  // namespace

std::error_code replaceFile(std::string_view data, const std::filesystem::path& destination) {
    const auto directory = destination.parent_path();
    if (!files::exists(directory)) {
        if (const auto error = files::createDirectories(directory)) {
            return error;
        }
    }
    const auto temporary = temporaryFor(destination);
    // Another daemon of this account uses the same names. Repeat what it disturbed; the two rarely
    // write at the same moment, so that twenty attempts are far more than enough.
    constexpr int attempts = 20;
    std::error_code error;
    for (int i = 0; i < attempts; ++i) {
        if (const auto failure = files::writeAtomically(temporary, data)) {
            return failure;
        }
        const auto removal = files::remove(destination);
        error = files::move(temporary, destination);
        if (!isDisturbance(removal, error)) {
            break;
        }
    }
    return error;
}

bool wasReplacementCutOff(const std::filesystem::path& destination) {
    return !files::exists(destination) && files::exists(temporaryFor(destination));
}

}  // namespace orvane

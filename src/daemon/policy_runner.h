// The daemon's one long-lived object.
#pragma once

#include "control_plane/profile.h"
#include "platform/http/http_session.h"
#include "platform/log/logger.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// Keeps the stored guard policy in step with the control plane, in an endless loop.
///
/// All operations run on the thread that calls `run`, one after another. No operation reports
/// failure to its caller: each handles and logs its own. What lasts from one poll cycle to the next
/// are the files on disk, the session's connections, the name of the last profile, the hardware
/// UUID once it is known, and the two flags that decide whether the next poll sends the stored
/// ETag.
class PolicyRunner {
  public:
    using Profile = orvane::Profile;

    /// Touches no file and starts no request.
    PolicyRunner();

    // Set by the constructor and never changed; only the session has a state of its own.
    const Logger logger;
    HttpSession session;
    const std::filesystem::path policyPath;     ///< the policy, as received
    const std::filesystem::path etagPath;       ///< its ETag
    const std::filesystem::path effectivePath;  ///< the effective configuration, as received
    const std::int64_t waitSeconds;             ///< how long the server is asked to hold a poll
    const double pollInterval;                  ///< seconds of back-off after a failed poll

    /// The poll loop. Picks a profile and polls, endlessly; sleeps 30 s if there is no profile. The
    /// pace is otherwise set by the server's hold and by the back-off.
    void run();

    /// One conditional long-poll with `profile`: sends it, blocks until it is over, records it,
    /// acts on its status, and derives the capture policy again. After a failure this sleeps for
    /// `pollInterval` before it returns.
    ///
    /// The stored ETag is sent with every poll, with two exceptions. After a poll with an ETag of
    /// more than 1,024 bytes that was refused as malformed or too large, or got no status, the next
    /// one goes without it: an ETag that something on the way does not accept would keep every
    /// later policy out. And if an earlier process was killed while it replaced the policy, polls
    /// go without it until this process has received a policy.
    void pollOnce(const Profile& profile);

    /// Handles a 200: stores the body as it is and its "etag" in a file of its own, then fetches
    /// the effective configuration with the same profile. A missing or unusable body changes
    /// nothing.
    void handleUpdated(std::optional<std::string> data, const Profile& profile);

    /// The stored ETag, possibly empty; absent if there is none or its file is not usable.
    [[nodiscard]] std::optional<std::string> loadEtag() const;

    /// Replaces the file at `destination` as `replaceFile` does. A failure is logged once.
    void atomicWrite(std::string_view data, const std::filesystem::path& destination) const;

    /// The machine's hardware UUID, or the empty string if there is none. Found once per process; a
    /// failed attempt is repeated on the next call. Not thread-safe.
    static std::string hardwareUUID();

  private:
    void fetchEffective(const Profile& profile);
    void applyCaptureFromLocalPolicy() const;

    static std::optional<std::string> cachedHardwareUuid;

    bool omitsLongEtag_ = false;      ///< from the next poll
    bool hasReceivedPolicy_ = false;  ///< in this process, whether or not it could be stored
};

}  // namespace orvane

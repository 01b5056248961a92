// The daemon's one long-lived object.
#pragma once

#include "config/orvane_config.h"
#include "platform/http/http_session.h"
#include "platform/log/logger.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// Keeps the stored guard policy in step with the control plane, turn after turn, for ever.
///
/// All operations run on the thread that calls `run`, one after another; only the completions of
/// HTTP requests run on the session's thread. Nothing fails outward: every operation handles its
/// own failure and logs it. Between turns there are the files on disk, the session's connections,
/// the name of the last profile, the hardware UUID once it is known, and what decides whether the
/// next poll is sent with the stored tag.
class PolicyRunner {
  public:
    using Profile = OrvaneConfig::Profile;

    /// Touches no file and starts no request.
    PolicyRunner();

    // Made by the constructor. All but the session, which has connections, stay as they are.
    const Logger logger;
    HttpSession session;
    const std::filesystem::path policyPath;     ///< the policy, as received
    const std::filesystem::path etagPath;       ///< its version tag
    const std::filesystem::path effectivePath;  ///< the effective configuration, as received
    const std::int64_t waitSeconds;             ///< how long the server is asked to hold a poll
    const double pollInterval;                  ///< seconds of back-off after a failed poll

    /// The poll loop. Picks a profile and polls, for ever; sleeps 30 s when there is no profile.
    /// The pace is otherwise set by the server's hold and by the back-off.
    void run();

    /// One conditional long-poll with `profile`: sends it, blocks until it is over, records it,
    /// acts on its status, and derives the capture policy anew. A failure costs a sleep of
    /// `pollInterval` before this returns.
    ///
    /// The stored tag is sent with every poll, with two exceptions. After a poll with a tag of more
    /// than 1,024 bytes that was refused as malformed or too large, or got no status, the next one
    /// goes without: a tag that something on the way does not take would keep every later policy
    /// out. And where an earlier process was killed while it replaced the policy, polls go without
    /// until this process has received one.
    void pollOnce(const Profile& profile);

    /// What a 200 brings: the body is stored as it is, its "etag" in a file of its own, then the
    /// effective configuration is fetched with the same profile. An absent or unusable body changes
    /// nothing.
    void handleUpdated(std::optional<std::string> data, const Profile& profile);

    /// The stored version tag, possibly empty; absent when there is none or its file is not usable.
    [[nodiscard]] std::optional<std::string> loadEtag() const;

    /// Replaces the file at `destination`, making its directory if need be. Readers find the old
    /// file, none for a moment, or the new one, never a part; on return the new one is on disk,
    /// where its directory can be flushed. A failure is logged once; up to the last step it leaves
    /// the destination as it was. Another process of this account may do the same meanwhile: what
    /// it disturbs is repeated.
    ///
    /// Steps: write "<name>.tmp" beside it, remove the destination, move the .tmp in its place.
    /// When the move fails, the .tmp stays with the new content until the next write takes its
    /// place.
    void atomicWrite(std::string_view data, const std::filesystem::path& destination) const;

    /// The machine's hardware UUID, or the empty text when there is none. Found once per process; a
    /// failed attempt is repeated on the next call. Not for two threads at once.
    static std::string hardwareUUID();

  private:
    /// Whether `atomicWrite` was ended between its removal of `destination` and the move.
    static bool wasCutOff(const std::filesystem::path& destination);

    void fetchEffective(const Profile& profile);
    void applyCaptureFromLocalPolicy() const;

    static std::optional<std::string> cachedHardwareUuid;

    bool leavesLongTagOut_ = false;   ///< in the next poll
    bool hasReceivedPolicy_ = false;  ///< in this process, whether or not it could be stored
};

}  // namespace orvane

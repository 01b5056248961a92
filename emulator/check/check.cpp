#include "emulator/check/check.h"

#include "control_plane/effective_config.h"
#include "control_plane/poll_request.h"
#include "daemon/policy_store.h"
#include "emulator/check/general_judgement.h"
#include "emulator/check/judgement.h"
#include "platform/text/text.h"

#include <utility>

namespace orvane::emulator {
namespace {

using namespace std::chrono_literals;

constexpr const char* wrongSecret = "orvane-check-not-valid";
constexpr const char* unknownTag = "orvane-check-unknown";
constexpr std::size_t longTagLength = 8192;
/// No device has it.
constexpr const char* nilUuid = "00000000-0000-0000-0000-000000000000";

/// One run, in steps.
class Check {
  public:
    Check(const Subject& subject, const Ask& ask,
          const std::function<void(const Finding&)>& onFinding)
        : subject_(subject), profile_(subject.profile), ask_(ask), onFinding_(onFinding) {}

    Report run() {
        if (subject_.enrollment && !lookUp()) {
            return std::move(report_);
        }
        const Outcome first = poll(std::nullopt);
        note(judgeFirstPoll(first));
        if (isPolicy(first)) {
            note(judgeTag(first));
            note(judgeEffective(askForEffective(profile_)));
            tryWrongKey();
            tryTags(first);
        }
        return std::move(report_);
    }

  private:
    Outcome send(const HttpRequest& request, std::chrono::milliseconds patience) {
        ++report_.requests;
        return ask_(request, patience);
    }

    void note(Findings findings) {
        for (Finding& finding : findings) {
            onFinding_(finding);
            report_.findings.push_back(std::move(finding));
        }
    }

    static bool isPolicy(const Outcome& outcome) {
        return outcome.status == 200 && outcome.body && orvane::readPolicy(*outcome.body);
    }

    Outcome poll(const std::optional<std::string>& tag, std::int64_t wait = longPollSeconds) {
        return poll(profile_, tag, wait);
    }

    Outcome poll(const Profile& profile, const std::optional<std::string>& tag,
                 std::int64_t wait = longPollSeconds) {
        const auto patience = subject_.wait + (wait < longPollSeconds ? 1s : 0s);
        return send(pollRequest(profile, tag, wait).value(), patience);
    }

    Outcome askForEffective(const Profile& profile) {
        return send(effectiveRequest(effectiveUrl(profile.apiUrl).value(), profile, nilUuid),
                    subject_.wait);
    }

    Outcome askForConfig(const DeviceEnrollment& enrollment) {
        return send(agentConfigRequest(enrollment, agentProcess).value(), subject_.wait);
    }

    /// False when the device has no usable profile after it.
    bool lookUp() {
        const Outcome outcome = askForConfig(*subject_.enrollment);
        note(judgeLookup(outcome));
        DeviceEnrollment stranger = *subject_.enrollment;
        stranger.deviceToken = wrongSecret;
        note(judgeLookupWithWrongToken(askForConfig(stranger)));
        const auto config = readAgentConfig(
            HttpResponse{.status = outcome.status, .body = outcome.body}, profile_.apiUrl);
        const auto url = config ? Url::parse(config->apiUrl) : std::nullopt;
        if (!url || !url->isFetchable()) {
            return false;
        }
        profile_.apiUrl = config->apiUrl;
        profile_.apiKey = config->uploadKey;
        profile_.agentSlug = config->agentSlug;
        return true;
    }

    void tryWrongKey() {
        Profile stranger = profile_;
        stranger.apiKey = wrongSecret;
        note(judgePollWithWrongKey(poll(stranger, std::nullopt)));
        note(judgeEffectiveWithWrongKey(askForEffective(stranger)));
    }

    void tryTags(const Outcome& first) {
        const auto tag = orvane::readPolicy(*first.body)->etag;
        // A daemon does not send one that no header can hold.
        if (!tag || tag->size() + 2 > HttpSession::headerValueLimit ||
            text::hasControlCharacter(*tag)) {
            return;
        }
        note(judgeUnknownTag(trials::pollWithUnknownTag, poll(unknownTag)));
        const Outcome refused = poll(std::string(longTagLength, 'x'));
        note(judgeLongTag(refused));
        if (!refused.isOutstanding && mayRefuseEtag(refused.status)) {
            note(judgeUnknownTag(trials::pollAfterLongTag, poll(std::nullopt)));
        }
        note(judgeShortPoll(poll(tag, 1)));
        hold(*tag);
        report_.isComplete = true;
    }

    /// The policy may have changed since, which is no mistake.
    void hold(std::string tag) {
        Outcome outcome = poll(tag);
        if (isPolicy(outcome)) {
            const auto newTag = orvane::readPolicy(*outcome.body)->etag;
            if (newTag && newTag != tag) {
                tag = *newTag;
                outcome = poll(tag);
            }
        }
        note(judgeHold(outcome, tag));
    }

    const Subject& subject_;
    Profile profile_;
    const Ask& ask_;
    const std::function<void(const Finding&)>& onFinding_;
    Report report_;
};

std::string counted(std::size_t count, const std::string& noun) {
    return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

}  // namespace

Report check(const Subject& subject, const Ask& ask,
             const std::function<void(const Finding&)>& onFinding) {
    return Check(subject, ask, onFinding).run();
}

std::string summaryOf(const Report& report, const Subject& subject) {
    std::string text =
        counted(report.requests, "request") + ", " +
        (report.findings.empty() ? "nothing wrong" : counted(report.findings.size(), "finding"));
    text += report.isComplete ? "; a hold was watched for " + std::to_string(subject.wait.count()) +
                                    " s, --wait SECONDS changes that"
                              : "; without a policy that has an ETag there is no more to try";
    return text +
           (subject.enrollment
                ? ""
                : "; the lookup of devices was not tried, which takes --device and --tenant");
}

}  // namespace orvane::emulator

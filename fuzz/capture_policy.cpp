// The capture policy, derived from a guard policy while its file has another content; a NUL is
// between the two, and without one there is no such file. What another JSON library finds in the
// policy is what is written; a file that says so already is left alone; nothing usable, nothing
// done; and a second derivation writes nothing.
#include "guard/capture_policy.h"

#include "daemon/daemon_logger.h"
#include "fuzz.h"
#include "json_model.h"
#include "platform/machine/paths.h"
#include "support/log_capture.h"
#include "support/test_files.h"

namespace orvane::fuzz {

namespace {

using guard::CapturePolicy;

struct Files {
    std::filesystem::path policy = rootDirectory() / "policy.json";
    std::filesystem::path capture = paths::setupDirectory() / "capture-policy.json";
};

std::optional<CapturePolicy> captureIn(const JsonModel& policy) {
    const std::string guard = policy.isObject("guard_config") ? "guard_config" : "config";
    if (!policy.isObject(guard + "/capture")) {
        return std::nullopt;
    }
    return CapturePolicy{policy.boolean(guard + "/capture/enabled").value_or(false),
                         policy.strings(guard + "/capture/hosts").value_or(StringList()),
                         policy.boolean(guard + "/capture/suppress_ech").value_or(false)};
}

/// Whether `file` says `wanted`, member for member.
bool says(const JsonModel& file, const CapturePolicy& wanted) {
    return file.boolean("enabled") == wanted.enabled &&
           file.strings("intercept_hosts") == wanted.interceptHosts &&
           file.boolean("suppress_ech").value_or(false) == wanted.suppressEch;
}

std::optional<std::string> contentOf(const std::filesystem::path& file) {
    return std::filesystem::exists(file) ? std::optional(test::readFile(file)) : std::nullopt;
}

/// Whether a derivation wrote, by what it logged.
bool derive(const Files& files) {
    static const Logger logger = daemonLogger();
    static const test::LogCapture log;
    log.clear();
    guard::applyCapturePolicy(files.policy, logger);
    const auto messages = log.messages();
    check(messages.size() <= 1);
    check(messages.empty() || messages.front().level == "default");
    return !messages.empty();
}

void checkWritten(const Files& files, const std::optional<CapturePolicy>& wanted) {
    const JsonModel model(test::readFile(files.capture));
    check(model.isUsable() && model.keys().size() == 3 && model.boolean("suppress_ech"));
    check(!wanted || says(model, *wanted));
    check(test::modeOf(files.capture) == 0644);
}

/// What has to happen, as far as the model knows both documents.
void checkDecision(bool wrote, const JsonModel& policy, const std::optional<JsonModel>& existing) {
    if (policy.knowsMembers() && (!existing || existing->knowsMembers())) {
        const auto wanted = captureIn(policy);
        check(wrote == (wanted && !(existing && says(*existing, *wanted))));
    }
}

}  // namespace

void tryInput(std::string_view input) {
    static const Files files;
    const auto parts = partsOf(input, 2);
    const JsonModel policy(parts.front());
    std::optional<JsonModel> existing;
    test::writeFile(files.policy, parts.front());
    std::filesystem::remove(files.capture);
    if (parts.size() > 1) {
        test::writeFile(files.capture, parts.back());
        existing.emplace(parts.back());
    }
    const auto before = contentOf(files.capture);

    const bool wrote = derive(files);
    checkDecision(wrote, policy, existing);
    if (wrote) {
        checkWritten(files, policy.knowsMembers() ? captureIn(policy) : std::nullopt);
    } else {
        check(contentOf(files.capture) == before);
    }
    const auto after = contentOf(files.capture);
    check(!derive(files));
    check(contentOf(files.capture) == after);
    check(test::namesIn(paths::setupDirectory()).size() == (after ? 1 : 0));
}

}  // namespace orvane::fuzz

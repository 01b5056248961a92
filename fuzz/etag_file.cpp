// The stored ETag. The input once as the ETag's own file and once as a policy: the ETag is the
// one that another JSON library finds; a policy's ETag, stored and loaded, is the same; a policy
// that is not usable changes nothing; what cannot be part of a header is omitted from the next
// poll.
#include "control_plane/poll_request.h"
#include "daemon/daemon_logger.h"
#include "daemon/policy_runner.h"
#include "fuzz.h"
#include "json_model.h"
#include "support/log_capture.h"
#include "support/test_files.h"

#include <algorithm>

namespace orvane::fuzz {

namespace {

constexpr std::string_view earlierTag = "earlier";
constexpr std::string_view earlierFile = R"({"etag":"earlier"})";
constexpr std::string_view earlierPolicy = "{}";

/// With an address that cannot be asked, so that a new policy is all that there is to store.
const Profile profile{"managed", " ", "key", std::nullopt, std::nullopt};

void checkPoll(const std::optional<std::string>& tag) {
    Profile reachable = profile;
    reachable.apiUrl = "http://127.0.0.1";
    const auto request = pollRequest(reachable, tag, 300);
    check(request.has_value());
    const bool fits = tag && std::none_of(tag->begin(), tag->end(), [](unsigned char byte) {
                          return byte < 0x20 || byte == 0x7F;
                      });
    check(request->headers.size() == (fits ? 3 : 2));
    check(!fits || (request->headers.back().name == "If-None-Match" &&
                    request->headers.back().value == '"' + *tag + '"'));
}

void checkStoredTag(const PolicyRunner& runner, std::string_view content, const JsonModel& model) {
    test::writeFile(runner.etagPath, content);
    const auto tag = runner.loadEtag();
    check(!model.knowsMembers() || tag == model.string("etag"));
    check(!tag || !model.isDecided() || model.isUsable());
    checkPoll(tag);
}

void checkPolicy(PolicyRunner& runner, std::string_view content, const JsonModel& model) {
    test::writeFile(runner.etagPath, earlierFile);
    test::writeFile(runner.policyPath, earlierPolicy);
    runner.handleUpdated(std::string(content), profile);
    const std::string stored = test::readFile(runner.policyPath);
    check(stored == content || stored == earlierPolicy);
    check(!model.isDecided() || (stored == content) == (model.isUsable() || content == "{}"));
    const auto tag = runner.loadEtag();
    check(tag.has_value() && !tag->empty());
    check(!model.knowsMembers() ||
          tag == model.nonEmptyString("etag").value_or(std::string(earlierTag)));
    const JsonModel file(test::readFile(runner.etagPath));
    check(file.keys() == std::vector<std::string>{"etag"} && file.string("etag") == tag);
}

}  // namespace

void tryInput(std::string_view input) {
    static const std::filesystem::path root = rootDirectory();
    static const test::LogCapture log;
    static PolicyRunner runner;
    const JsonModel model(input);
    checkStoredTag(runner, input, model);
    checkPolicy(runner, input, model);
    log.clear();
}

}  // namespace orvane::fuzz

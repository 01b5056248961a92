#include "support/policy_versions.h"

#include "support/daemon_test.h"

namespace orvane::test {

std::map<std::string, std::string> PolicyVersion::files() const {
    return {{policyFile, policy},
            {etagFile, R"({"etag":")" + etag + "\"}"},
            {effectiveFile, effective},
            {capturePolicyFile, R"({"enabled":true,"intercept_hosts":[")" + etag +
                                    R"(.example"],"suppress_ech":false})"}};
}

PolicyVersion policyVersion(int number) {
    const std::string etag = "v" + std::to_string(number);
    return {etag,
            R"({"etag":")" + etag + R"(","guard_config":{"capture":{"enabled":true,"hosts":[")" +
                etag + R"(.example"]}}})",
            R"({"effective":")" + etag + "\"}"};
}

void serve(ScriptedServer& server, const PolicyVersion& version, const Step& whenUnchanged) {
    server.always(pollPath, [=](Connection& connection, const ReceivedRequest& request) {
        const bool unchanged = request.header("If-None-Match") == "\"" + version.etag + "\"";
        return (unchanged ? whenUnchanged : answer(200, version.policy))(connection, request);
    });
    server.always(effectivePath, answer(200, version.effective));
}

}  // namespace orvane::test

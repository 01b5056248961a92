#include "faults/policy_server.h"

#include "support/daemon_test.h"
#include "support/policy_versions.h"

namespace orvane::test {

PolicyServer::PolicyServer() {
    server_.always(pollPath, [this](Connection& connection, const ReceivedRequest& request) {
        return poll(connection, request);
    });
    server_.always(effectivePath, [this](Connection& connection, const ReceivedRequest& request) {
        return effective(connection, request);
    });
}

void PolicyServer::answerOne(int version) {
    const std::lock_guard lock(mutex_);
    answers_.push_back(version);
}

std::vector<std::optional<std::string>> PolicyServer::polls() const {
    const std::lock_guard lock(mutex_);
    return polls_;
}

std::vector<std::string> PolicyServer::effectiveTargets() const {
    std::vector<std::string> targets;
    for (const ReceivedRequest& request : server_.requestsTo(effectivePath)) {
        targets.push_back(request.target);
    }
    return targets;
}

std::optional<int> PolicyServer::takeAnswer() {
    const std::lock_guard lock(mutex_);
    if (answers_.empty()) {
        return std::nullopt;
    }
    version_ = answers_.front();
    answers_.erase(answers_.begin());
    return version_;
}

bool PolicyServer::poll(Connection& connection, const ReceivedRequest& request) {
    auto tag = request.header("If-None-Match");
    if (tag) {
        tag = tag->substr(1, tag->size() - 2);
    }
    {
        const std::lock_guard lock(mutex_);
        polls_.push_back(tag);
    }
    std::optional<int> version;
    while (!(version = takeAnswer())) {
        if (!connection.pause(std::chrono::milliseconds(1))) {
            return false;
        }
    }
    const PolicyVersion current = policyVersion(*version);
    return (tag == current.etag ? answer(304) : answer(200, current.policy))(connection, request);
}

bool PolicyServer::effective(Connection& connection, const ReceivedRequest& request) {
    int version = 0;
    {
        const std::lock_guard lock(mutex_);
        version = version_;
    }
    return answer(200, policyVersion(version).effective)(connection, request);
}

}  // namespace orvane::test

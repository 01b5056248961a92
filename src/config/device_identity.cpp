#include "config/device_identity.h"

#include "platform/http/semaphore.h"
#include "platform/json/json.h"

#include <memory>
#include <mutex>
#include <utility>

namespace orvane {

namespace {

constexpr std::chrono::seconds waitLimit(15);

/// Where the answer waits for the caller. Shared with the completion, which may come after the
/// caller has given up; the mutex is for that case alone.
class ResultSlot {
  public:
    void put(std::optional<DeviceIdentity::Resolved> resolved) {
        {
            const std::lock_guard lock(mutex_);
            resolved_ = std::move(resolved);
        }
        done_.signal();
    }

    /// What is there once the answer has come or the wait for `session` has run out, whichever was
    /// first.
    std::optional<DeviceIdentity::Resolved> get(HttpSession& session) {
        if (!done_.waitFor(waitLimit)) {
            session.endFlood();
        }
        const std::lock_guard lock(mutex_);
        return resolved_;
    }

  private:
    Semaphore done_{0};
    std::mutex mutex_;
    std::optional<DeviceIdentity::Resolved> resolved_;
};

}  // namespace

std::optional<DeviceIdentity::Resolved> DeviceIdentity::readAnswer(
    const std::optional<HttpResponse>& response, const std::string& fallbackApiUrl) {
    if (!response || response->status != 200 || !response->body) {
        return std::nullopt;
    }
    const auto members = json::readObject(
        *response->body, {"upload_api_key", "api_url", "agent_slug", "agent_type"});
    auto uploadKey = members ? members->nonEmptyString("upload_api_key") : std::nullopt;
    if (!uploadKey) {
        return std::nullopt;
    }
    return Resolved{members->string("api_url").value_or(fallbackApiUrl), std::move(*uploadKey),
                    members->string("agent_slug").value_or(""),
                    members->string("agent_type").value_or("")};
}

std::optional<DeviceIdentity::Resolved> DeviceIdentity::resolve(std::string_view process) {
    const auto enrollment = storedEnrollment();
    auto request = enrollment ? requestFor(*enrollment, process) : std::nullopt;
    if (!request) {
        return std::nullopt;
    }
    const auto slot = std::make_shared<ResultSlot>();
    HttpSession& session = HttpSession::shared();
    session.send(std::move(*request),
                 [slot, fallback = enrollment->apiUrl](const HttpResult& result) {
                     slot->put(readAnswer(result.response, fallback));
                 });
    return slot->get(session);
}

}  // namespace orvane

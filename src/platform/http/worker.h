// The thread of an HTTP session, and its exchanges.
#pragma once

#include "platform/http/curl_handles.h"
#include "platform/http/http_session.h"
#include "platform/http/open_sockets.h"
#include "platform/http/transfer.h"
#include "platform/http/trust_store.h"
#include "platform/machine/clock.h"
#include "platform/machine/continuous_time.h"
#include "platform/machine/network_changes.h"
#include "platform/process/guarded.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace orvane {

/// The implementation of HttpSession, with the same operations.
class HttpSession::Worker {
  public:
    /// How long one call into libcurl may keep the worker's thread before `endFlood` cuts the
    /// connections, and how much later than the limits a completion may be called.
    static constexpr std::chrono::seconds grace{5};

    explicit Worker(HttpLimits limits) : limits_(limits) {}
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker();

    void send(HttpRequest request, HttpCompletion completion);

    /// How long after `send` a completion has been called at the latest, unless a flood keeps
    /// libcurl busy or the request is sent once more, which may take as long again.
    [[nodiscard]] std::chrono::milliseconds completionLimit() const {
        return limits_.total + grace;
    }

    /// Call this when a completion is overdue. A server that floods with HTTP/2 frames that carry
    /// nothing keeps libcurl from returning, and this thread from looking at the clock. If that has
    /// lasted for `grace`, all connections are cut off: overdue exchanges end as timed out, the
    /// others as lost. May be called from any thread.
    void endFlood();

  private:
    /// Later than any time.
    static constexpr clock::TimePoint never = clock::TimePoint::max();

    bool startThread() ORVANE_REQUIRES(mutex_);
    void run();

    /// False when the session is being destroyed.
    bool takeIncoming();

    /// Closes every connection. False if there is no memory for that now.
    bool replaceMulti();

    void begin(std::unique_ptr<Transfer> transfer);

    /// Passes `transfer` to libcurl. False if libcurl does not accept it.
    bool start(Transfer& transfer);

    /// Retries `transfer`, which ended with `code`, if that makes sense.
    bool startAgain(Transfer& transfer, CURLcode code);
    bool restart(Transfer& transfer);

    void completeFinished();
    void completeOverdue();
    /// Tries other addresses for transfers whose current ones have used up their time.
    void leaveSilentAddresses();
    void finish(const Transfer* finished, CURLcode code, const char* ownError);
    /// Retries requests whose connections are from an address that is gone.
    void leaveLostAddresses();
    /// Blocks until there is something to do, or a deadline has come.
    void waitForWork();
    [[nodiscard]] int waitLimit() const;

    const HttpLimits limits_;
    std::mutex mutex_;  ///< also held while multi_ is created or replaced
    std::deque<std::unique_ptr<Transfer>> incoming_ ORVANE_GUARDED_BY(mutex_);
    bool stopping_ ORVANE_GUARDED_BY(mutex_) = false;
    bool couldNotStart_ ORVANE_GUARDED_BY(mutex_) = false;
    OpenSockets openSockets_;  ///< outlives the connections of multi_
    MultiHandle multi_;
    std::thread thread_;
    std::atomic<clock::TimePoint> busySince_ =
        never;  ///< since when a call into libcurl has been running
    // Used by the worker thread only:
    std::vector<std::unique_ptr<Transfer>> active_;
    ContinuousTimer timer_;
    std::optional<NetworkChanges> networkChanges_;
    clock::TimePoint lookAtAddresses_ = never;
    EasyHandle spareEasy_;
    TrustStore trustStore_;
    bool dropConnections_ = false;
};

}  // namespace orvane

#include "platform/http/worker.h"

#include "platform/http/error_text.h"

#include <algorithm>
#include <array>
#include <climits>
#include <new>
#include <system_error>
#include <utility>

namespace orvane {

namespace {

using std::chrono::milliseconds;

/// How long a machine that changes networks gets to have its new addresses and routes in place
/// before they are looked at, the first time and again.
constexpr std::chrono::seconds settlingTime(1);

}  // namespace

HttpSession::Worker::~Worker() {
    if (thread_.joinable()) {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
            (void)curl_multi_wakeup(multi_.get());
        }
        thread_.join();
    }
}

void HttpSession::Worker::send(HttpRequest request, HttpCompletion completion) {
    auto transfer = std::make_unique<Transfer>(std::move(request), std::move(completion), limits_);
    const std::lock_guard lock(mutex_);
    if (!startThread()) {
        transfer->complete(CURLE_FAILED_INIT, nullptr);
        return;
    }
    incoming_.push_back(std::move(transfer));
    (void)curl_multi_wakeup(multi_.get());
}

void HttpSession::Worker::endFlood() {
    if (clock::monotonicNow() - busySince_.load() >= grace) {
        openSockets_.shutDown();
    }
}

bool HttpSession::Worker::startThread() {
    if (thread_.joinable()) {
        return true;
    }
    initializeLibraryOnce();
    multi_ = makeMulti();
    if (multi_ == nullptr && std::exchange(couldNotStart_, true)) {
        // OpenSSL does not try again what it once had no memory to set up. A new process does.
        throw std::bad_alloc();
    }
    try {
        if (multi_ != nullptr) {
            thread_ = std::thread([this] { run(); });
        }
    } catch (const std::system_error&) {  // artificial branch: any other exception
        return false;                     // no thread available right now
    }
    return thread_.joinable();
}

void HttpSession::Worker::run() {
    networkChanges_.emplace();
    while (takeIncoming()) {
        leaveLostAddresses();
        int running = 0;
        busySince_ = clock::monotonicNow();
        (void)curl_multi_perform(multi_.get(), &running);
        busySince_ = never;
        completeFinished();
        completeOverdue();
        leaveSilentAddresses();
        // After a failure everything starts over: connections, names, trusted certificates. Other
        // exchanges keep their connections until they have ended.
        if (dropConnections_ && active_.empty() && replaceMulti()) {
            continue;  // `send` may have woken up the handle that is gone
        }
        waitForWork();
    }
    for (const auto& transfer : active_) {
        (void)curl_multi_remove_handle(multi_.get(), transfer->easy());
        transfer->complete(CURLE_ABORTED_BY_CALLBACK, "cancelled");
    }
}

bool HttpSession::Worker::takeIncoming() {
    std::deque<std::unique_ptr<Transfer>> arrived;
    {
        const std::lock_guard lock(mutex_);
        if (stopping_) {
            for (auto& transfer : incoming_) {
                transfer->complete(CURLE_ABORTED_BY_CALLBACK, "cancelled");
            }
            return false;
        }
        arrived.swap(incoming_);
    }
    for (auto& transfer : arrived) {
        begin(std::move(transfer));
    }
    return true;
}

bool HttpSession::Worker::replaceMulti() {
    MultiHandle fresh = makeMulti();
    if (fresh == nullptr) {
        return false;
    }
    const std::lock_guard lock(mutex_);  // `send` wakes the handle up from other threads
    multi_ = std::move(fresh);
    trustStore_.forget();
    dropConnections_ = false;
    return true;
}

void HttpSession::Worker::begin(std::unique_ptr<Transfer> transfer) {
    if (const char* refusal = transfer->refusal()) {
        transfer->complete(CURLE_URL_MALFORMAT, refusal);
        return;
    }
    openSockets_.noteStart();
    if (!start(*transfer)) {
        transfer->complete(CURLE_FAILED_INIT, nullptr);
        return;
    }
    active_.push_back(std::move(transfer));
}

bool HttpSession::Worker::start(Transfer& transfer) {
    EasyHandle easy = spareEasy_ ? std::move(spareEasy_) : EasyHandle(curl_easy_init());
    return easy != nullptr && transfer.prepare(std::move(easy), trustStore_, openSockets_) &&
           curl_multi_add_handle(multi_.get(), transfer.easy()) == CURLM_OK;
}

bool HttpSession::Worker::startAgain(Transfer& transfer, CURLcode code) {
    if (transfer.isOverdue()) {
        return false;
    }
    const bool isLost = transfer.isToBeSentAgain(code);
    const bool isToTryAllAddresses = code == CURLE_COULDNT_CONNECT && openSockets_.forgetSilent();
    const bool isToReadBundle = code == CURLE_PEER_FAILED_VERIFICATION &&
                                !trustStore_.readsBundle() &&
                                TrustStore::hasBundle(transfer.easy());
    if (!isLost && !isToTryAllAddresses && !isToReadBundle) {
        return false;
    }
    if (isToReadBundle) {
        trustStore_.wantBundle();
    }
    if (isToTryAllAddresses) {
        transfer.noteNoOtherAddress();
    }
    if (isLost) {
        transfer.startLimits();
    }
    return restart(transfer);
}

bool HttpSession::Worker::restart(Transfer& transfer) {
    (void)curl_multi_remove_handle(multi_.get(), transfer.easy());
    return start(transfer);
}

void HttpSession::Worker::completeFinished() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
        if (message->msg == CURLMSG_DONE) {
            void* owner = nullptr;
            (void)curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &owner);
            auto* const transfer = static_cast<Transfer*>(owner);
            const CURLcode code = transfer->outcome(message->data.result);
            if (!startAgain(*transfer, code)) {
                // What `endFlood` cut off looks like a connection that was lost.
                finish(transfer, code, transfer->isOverdue() ? timedOut : nullptr);
            }
        }
    }
}

void HttpSession::Worker::completeOverdue() {
    std::vector<Transfer*> overdue;
    for (const auto& transfer : active_) {
        if (transfer->isOverdue()) {
            overdue.push_back(transfer.get());
        }
    }
    for (Transfer* transfer : overdue) {
        finish(transfer, CURLE_OPERATION_TIMEDOUT, timedOut);
    }
}

void HttpSession::Worker::leaveSilentAddresses() {
    std::vector<Transfer*> unanswered;
    for (const auto& transfer : active_) {
        if (transfer->addressDeadline() <= clock::monotonicNow()) {
            unanswered.push_back(transfer.get());
        }
    }
    for (Transfer* transfer : unanswered) {
        openSockets_.passOverSilent();
        if (!restart(*transfer)) {
            finish(transfer, CURLE_FAILED_INIT, nullptr);
        }
    }
}

void HttpSession::Worker::leaveLostAddresses() {
    if (clock::monotonicNow() < lookAtAddresses_) {
        return;
    }
    const OpenSockets::Stranded stranded = openSockets_.cutOffStranded();
    if (stranded.isAnyCutOff) {
        for (const auto& transfer : active_) {
            transfer->noteCutOff();
        }
    }
    lookAtAddresses_ = stranded.isAnyLeft ? clock::monotonicNow() + settlingTime : never;
}

void HttpSession::Worker::finish(const Transfer* finished, CURLcode code, const char* ownError) {
    const auto place = std::find_if(active_.begin(), active_.end(), [=](const auto& transfer) {
        return transfer.get() == finished;
    });
    const std::unique_ptr<Transfer> transfer = std::move(*place);
    active_.erase(place);
    (void)curl_multi_remove_handle(multi_.get(), transfer->easy());
    transfer->complete(code, ownError);
    if (code == CURLE_OK) {
        // Some KiB that the next exchange need not allocate. A failure may leave it in any state.
        spareEasy_ = transfer->releaseEasy();
        curl_easy_reset(spareEasy_.get());
    } else {
        dropConnections_ = true;
    }
}

void HttpSession::Worker::waitForWork() {
    const int limit = waitLimit();
    // curl_multi_poll does not count the time that the machine sleeps; the timer does.
    timer_.set(milliseconds(limit));
    std::array<curl_waitfd, 2> others{};
    unsigned count = 0;
    for (const int descriptor : {timer_.descriptor(), networkChanges_->descriptor()}) {
        if (descriptor >= 0) {
            others.at(count++) = {descriptor, CURL_WAIT_POLLIN, 0};
        }
    }
    (void)curl_multi_poll(multi_.get(), others.data(), count, limit, nullptr);
    for (const curl_waitfd& other : others) {
        if (other.revents != 0 && other.fd == networkChanges_->descriptor()) {
            networkChanges_->clear();
            lookAtAddresses_ = clock::monotonicNow() + settlingTime;
        }
    }
}

int HttpSession::Worker::waitLimit() const {
    milliseconds limit(INT_MAX);
    if (lookAtAddresses_ != never) {
        limit = clock::blockLimit(lookAtAddresses_);
    }
    for (const auto& transfer : active_) {
        const auto next = std::min(transfer->deadline(), transfer->addressDeadline());
        limit = std::min(limit, clock::blockLimit(next));
    }
    return static_cast<int>(limit.count());
}

}  // namespace orvane

#pragma once

#include "emulator/active_faults.h"
#include "emulator/control_plane.h"
#include "emulator/devices.h"
#include "emulator/event_stream.h"
#include "emulator/front/front.h"
#include "emulator/hang_ups.h"
#include "emulator/holds.h"
#include "emulator/pending.h"

#include <microhttpd.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace orvane::emulator {

/// The control plane between libmicrohttpd, whose thread brings requests, and what decides.
class ControlPlane::Server : private EventSource {
  public:
    explicit Server(Options options);
    ~Server() override;
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t port() const { return port_; }
    std::string baseUrl() const;
    void setPolicy(Policy policy);
    void setFaults(std::vector<Fault> faults);
    std::size_t heldPolls() const;

  private:
    // What the HTTP library calls on its thread; `self` is the Server, `context` the Pending.
    static void* onTarget(void* self, const char* target, MHD_Connection* connection);
    static MHD_Result onRequest(void* self, MHD_Connection* connection, const char* path,
                                const char* method, const char* version, const char* bytes,
                                size_t* size, void** context);
    static void onCompleted(void* self, MHD_Connection* connection, void** context,
                            MHD_RequestTerminationCode code);

    bool isHttps() const { return !options_.certificatePem.empty(); }
    MHD_Daemon* start(int listener);
    std::unique_ptr<front::Front> startFront(int listener);
    int connect();
    MHD_Result answer(MHD_Connection* connection, Pending& pending);
    void hungUp(Pending& pending);

    // These expect the mutex to be held.
    Decision settle(MHD_Connection* connection, Pending& pending);
    Decision decisionFor(Pending& pending);
    Decision agentDecision(Pending& pending);
    void count(Pending& pending);
    bool isLate(Pending& pending) const;
    Decision hold(MHD_Connection* connection, Pending& pending, HoldKind kind,
                  Clock::time_point until);
    Decision ended(Pending& pending, Decision decision);
    std::chrono::milliseconds holdFor(const Pending& pending,
                                      std::chrono::milliseconds atMost) const;
    void replacePolicy(Policy policy);
    void replaceFaults(std::vector<Fault> faults);
    void decideAgain();
    void wakeStreams();

    std::optional<std::string> eventsAfter(Cursor& cursor, MHD_Connection* connection,
                                           bool& gone) override;

    /// The second thread.
    void keepTime();

    Options options_;
    std::uint16_t port_ = 0;
    HangUps hangUps_;
    mutable std::mutex mutex_;  // Guards the members below, down to daemon_.
    std::optional<Policy> policy_;
    std::uint64_t policyVersion_ = 1;
    ActiveFaults faults_;
    Devices devices_;
    Holds holds_{hangUps_};
    bool stopping_ = false;
    bool streamsAreBehind_ = false;
    Clock::time_point streamsToldAt_;
    unsigned polls_ = 0;
    MHD_Daemon* daemon_ = nullptr;
    std::unique_ptr<front::Front> front_;  // With HTTPS only.
    std::thread timeKeeper_;
};

}  // namespace orvane::emulator

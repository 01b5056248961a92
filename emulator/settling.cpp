// How a request is settled: what is decided, held, noted.
#include "emulator/agent_requests.h"
#include "emulator/chance.h"
#include "emulator/json_text.h"
#include "emulator/page_requests.h"
#include "emulator/server.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace orvane::emulator {
namespace {

/// Rows that one event tells of.
constexpr std::size_t mostRows = 200;

std::string event(const char* name, const std::string& data) {
    return std::string("event: ") + name + "\ndata: " + data + "\n\n";
}

}  // namespace

/// What to do now: Hold means that the request is held already. Looking at the policy and joining
/// the held ones is one step, so that no change can slip in between.
Decision ControlPlane::Server::settle(MHD_Connection* connection, Pending& pending) {
    Decision decision = decisionFor(pending);
    if (std::holds_alternative<Silence>(decision)) {
        if (!stopping_) {
            return hold(connection, pending, HoldKind::silence, Clock::time_point::max());
        }
        decision = Drop{};
    }
    if (const auto* const wanted = std::get_if<Hold>(&decision)) {
        if (!pending.hold) {
            pending.hold = holdFor(pending, wanted->atMost);
        }
        const auto until = pending.arrived + *pending.hold;
        if (!stopping_ && Clock::now() < until) {
            return hold(connection, pending, HoldKind::poll, until);
        }
        decision = Reply{304};
    }
    if (isLate(pending)) {
        return hold(connection, pending, HoldKind::silence, *pending.answerAt);
    }
    return ended(pending, std::move(decision));
}

Decision ControlPlane::Server::decisionFor(Pending& pending) {
    if (isFromAgent(pending.request)) {
        return agentDecision(pending);
    }
    Decision decision = decideForPeople(pending.request, {policy_, faults_.list(), devices_});
    if (auto* const accepted = std::get_if<Accept>(&decision)) {
        replacePolicy(std::move(accepted->policy));
        return Reply{204};
    }
    if (auto* const misbehave = std::get_if<Misbehave>(&decision)) {
        replaceFaults(std::move(misbehave->faults));
        return Reply{204};
    }
    return decision;
}

Decision ControlPlane::Server::agentDecision(Pending& pending) {
    count(pending);
    if (pending.isRefused) {
        return Reply{options_.behavior.failStatus};
    }
    Exchange& exchange = pending.exchange;
    const auto fault =
        faultFor(faults_.list(), exchange.device, pending.number, options_.behavior.seed);
    exchange.fault = fault ? nameOf(fault->kind) : "";
    pending.lateBy =
        fault && fault->kind == FaultKind::slow ? fault->delay : std::chrono::seconds(0);
    return fault ? decideWithFault(*fault, pending.request, options_.account, policy_)
                 : decide(pending.request, options_.account, policy_);
}

/// Once for each request.
void ControlPlane::Server::count(Pending& pending) {
    Exchange& exchange = pending.exchange;
    if (!exchange.device.empty()) {
        return;
    }
    exchange.device = deviceOf(pending.request, options_.account);
    exchange.isPoll = isPoll(pending.request);
    if (exchange.isPoll) {
        exchange.wait = waitOf(pending.request);
        pending.number = devices_.nextPoll(exchange.device);
        pending.isRefused =
            options_.behavior.failEvery != 0 && ++polls_ % options_.behavior.failEvery == 0;
    }
}

bool ControlPlane::Server::isLate(Pending& pending) const {
    if (pending.lateBy.count() == 0 || stopping_) {
        return false;
    }
    if (!pending.answerAt) {
        pending.answerAt = Clock::now() + pending.lateBy;
    }
    return Clock::now() < *pending.answerAt;
}

Decision ControlPlane::Server::hold(MHD_Connection* connection, Pending& pending, HoldKind kind,
                                    Clock::time_point until) {
    const bool begins = !std::exchange(pending.isHeld, true);
    devices_.held(pending.exchange, begins, Devices::WallClock::now());
    wakeStreams();
    holds_.add(connection, kind, until, pending.gone);
    return Hold{};
}

std::chrono::milliseconds ControlPlane::Server::holdFor(const Pending& pending,
                                                        std::chrono::milliseconds atMost) const {
    const Behavior& behavior = options_.behavior;
    atMost = std::min<std::chrono::milliseconds>(atMost, behavior.longestHold);
    if (!behavior.jitter) {
        return atMost;
    }
    const auto least = atMost * 4 / 5;
    const auto range = static_cast<std::uint64_t>((atMost - least).count()) + 1;
    const Draw draw{behavior.seed, pending.exchange.device, pending.number};
    return least + std::chrono::milliseconds(chance(draw, range));
}

/// Notes what became of the request.
Decision ControlPlane::Server::ended(Pending& pending, Decision decision) {
    pending.isOver = true;
    Exchange& exchange = pending.exchange;
    if (const auto* const reply = std::get_if<Reply>(&decision)) {
        exchange.status = reply->status;
        exchange.bytes = reply->rest == Rest::spaces ? reply->promised : reply->body.size();
    }
    exchange.held =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - pending.arrived);
    if (!exchange.device.empty()) {
        devices_.ended(exchange, pending.isHeld, Devices::WallClock::now());
        wakeStreams();
    }
    return decision;
}

std::optional<std::string> ControlPlane::Server::eventsAfter(Cursor& cursor,
                                                             MHD_Connection* connection,
                                                             bool& gone) {
    const std::scoped_lock lock(mutex_);
    if (stopping_ || gone) {
        return std::nullopt;
    }
    std::string text;
    if (std::exchange(cursor.policy, policyVersion_) != policyVersion_) {
        text +=
            event("policy",
                  policy_ ? jsonText({{"tag", policy_->etag}, {"text", policy_->text}}) : "null");
    }
    if (std::exchange(cursor.faults, faults_.version()) != faults_.version()) {
        text += event("faults", faultsText(faults_.list()));
    }
    auto [rows, version] = devices_.changedSince(cursor.devices, mostRows);
    if (std::exchange(cursor.devices, version) != version) {
        text += event("devices", rows);
    }
    if (text.empty()) {
        holds_.add(connection, HoldKind::stream, Clock::time_point::max(), gone);
    }
    return text;
}

}  // namespace orvane::emulator

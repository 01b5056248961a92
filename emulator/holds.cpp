#include "emulator/holds.h"

#include <iterator>

namespace orvane::emulator {
namespace {

int socketOf(MHD_Connection* connection) {
    return MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
}

}  // namespace

void Holds::add(MHD_Connection* connection, HoldKind kind, Clock::time_point deadline, bool& gone) {
    MHD_suspend_connection(connection);
    const int socket = socketOf(connection);
    const std::uint64_t id = ++lastId_;
    held_.emplace(id, Held{connection, socket, kind, deadline, &gone});
    ++counts_[kind];
    hangUps_.watch(socket, id);
    if (deadline < nextDeadline()) {
        hangUps_.interrupt();
    }
    deadlines_.emplace(deadline, id);
}

void Holds::releaseAll() {
    releaseIf([](const Held&) { return true; });
}

void Holds::release(HoldKind kind) {
    releaseIf([kind](const Held& held) { return held.kind == kind; });
}

void Holds::releaseUntil(Clock::time_point deadline) {
    while (!deadlines_.empty() && deadlines_.begin()->first <= deadline) {
        resume(held_.find(deadlines_.begin()->second));
    }
}

void Holds::hangUp(std::uint64_t id) {
    if (const auto found = held_.find(id); found != held_.end()) {
        *found->second.gone = true;
        resume(found);
    }
}

Clock::time_point Holds::nextDeadline() const {
    return deadlines_.empty() ? Clock::time_point::max() : deadlines_.begin()->first;
}

std::size_t Holds::count(HoldKind kind) const {
    const auto found = counts_.find(kind);
    return found == counts_.end() ? 0 : found->second;
}

Holds::Found Holds::resume(Found found) {
    const Held held = found->second;
    hangUps_.forget(held.socket);
    deadlines_.erase({held.deadline, found->first});
    --counts_[held.kind];
    MHD_resume_connection(held.connection);
    return held_.erase(found);
}

void Holds::releaseIf(const std::function<bool(const Held&)>& isMeant) {
    for (auto next = held_.begin(); next != held_.end();) {
        next = isMeant(next->second) ? resume(next) : std::next(next);
    }
}

}  // namespace orvane::emulator

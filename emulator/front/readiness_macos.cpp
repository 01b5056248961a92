#include "emulator/front/readiness.h"

#include <sys/event.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace orvane::front {
namespace {

constexpr std::uint64_t wakeUpId = 0;

bool change(int queue, std::uintptr_t what, std::int16_t filter, unsigned flags, unsigned notes,
            std::uint64_t id) {
    struct kevent64_s event {};
    EV_SET64(&event, what, filter, static_cast<std::uint16_t>(flags), notes, 0, id, 0, 0);
    return ::kevent64(queue, &event, 1, nullptr, 0, 0, nullptr) == 0;
}

}  // namespace

Readiness::Readiness() : queue_(::kqueue()) {
    if (!change(queue_, 0, EVFILT_USER, EV_ADD | EV_CLEAR, 0, wakeUpId)) {
        throw std::system_error(errno, std::generic_category(), "cannot watch connections");
    }
}

Readiness::~Readiness() {
    ::close(queue_);
}

bool Readiness::watch(int socket, std::uint64_t id) const {
    const auto what = static_cast<std::uintptr_t>(socket);
    return change(queue_, what, EVFILT_READ, EV_ADD | EV_CLEAR, 0, id) &&
           change(queue_, what, EVFILT_WRITE, EV_ADD | EV_CLEAR, 0, id);
}

std::vector<std::uint64_t> Readiness::wait() const {
    std::array<struct kevent64_s, 256> events{};
    const int count =
        ::kevent64(queue_, nullptr, 0, events.data(), static_cast<int>(events.size()), 0, nullptr);
    std::vector<std::uint64_t> ready;
    for (int i = 0; i < count; ++i) {
        if (const auto id = events.at(static_cast<std::size_t>(i)).udata; id != wakeUpId) {
            ready.push_back(id);
        }
    }
    return ready;
}

void Readiness::interrupt() const {
    (void)change(queue_, 0, EVFILT_USER, 0, NOTE_TRIGGER, wakeUpId);
}

}  // namespace orvane::front

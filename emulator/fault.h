// Misbehavior that a control plane, or what is between it and its agents, can be told to show.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::emulator {

enum class FaultKind : std::uint8_t {
    unauthorized,
    forbidden,
    notFound,
    tooLargeHeader,
    serverError,
    slow,
    neverAnswer,
    dropMidBody,
    truncate,
    garbage,
    htmlPortal,
    redirect,
    instant304,
    noEtag,
    longEtag,
    huge,
    goAway,
    outage
};

/// What is known of a kind of fault.
struct FaultDescription {
    FaultKind kind;
    std::string_view name;
    std::string_view meaning;  ///< What agents see, in a few words.
};

/// All kinds.
std::span<const FaultDescription> faultDescriptions();

std::string_view nameOf(FaultKind kind);

/// A fault that is switched on. A plain value.
struct Fault {
    FaultKind kind = FaultKind::unauthorized;
    std::string device{};            ///< Whose polls it strikes; empty for everybody's.
    unsigned percent = 100;          ///< Of the polls, chosen at random.
    std::chrono::seconds lasts{0};   ///< It is switched off after this time; 0 for never.
    std::chrono::seconds delay{10};  ///< How late an answer is, if it is `slow`.

    bool operator==(const Fault&) const = default;
};

/// Reads "NAME[,device=SLUG][,percent=N][,seconds=N][,delay=N]". Throws BadInput.
Fault parseFault(std::string_view text);

/// Reads a JSON array of objects with "name" and, if wanted, "device", "percent", "seconds" and
/// "delay". Throws BadInput when anything in it is wrong.
std::vector<Fault> readFaults(std::string_view json);

/// What readFaults reads.
std::string faultsText(std::span<const Fault> faults);

/// The name and meaning of every kind, as a JSON array of objects.
std::string faultKindsText();

/// The first of `faults` that strikes a device's poll with the number `poll`; absent when none
/// does. Other requests have the number 0, and only an outage strikes those. The same seed gives
/// the same answers. Pure.
std::optional<Fault> faultFor(std::span<const Fault> faults, std::string_view device,
                              std::uint64_t poll, std::uint64_t seed);

}  // namespace orvane::emulator

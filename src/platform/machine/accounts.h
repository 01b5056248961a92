// The accounts of this machine.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

struct Account {
    std::string name;
    std::uint32_t user = 0;
    std::uint32_t group = 0;
    std::filesystem::path home;
};

/// The accounts in the account database, in its order. A directory service may not list all.
std::vector<Account> allAccounts();

/// The name of the account with the id `user`, or the id in decimal if it has no entry.
std::string accountName(std::uint32_t user);

/// The id of the account that this process runs as (its effective user id).
std::uint32_t ownUser();

/// Runs `body` in a child process with the rights of `account` and no others, and returns its
/// result. nullopt if the rights cannot be assumed (that needs root), `body` throws or returns an
/// empty string, or it takes longer than `limit`. REQUIRES: no other threads.
[[nodiscard]] std::optional<std::string> resultAs(const Account& account,
                                                  const std::function<std::string()>& body,
                                                  std::chrono::milliseconds limit);

}  // namespace orvane

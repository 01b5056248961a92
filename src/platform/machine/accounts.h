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

/// The accounts in the account database, in its order. A directory service may keep some back.
std::vector<Account> allAccounts();

/// The name of the account with the id `user`, or the id as text if it has no entry.
std::string accountName(std::uint32_t user);

/// The id of the account that this process runs as.
std::uint32_t ownUser();

/// Runs `body` in a child process with the rights of `account` and nothing else, and returns its
/// result. Absent if the rights cannot be taken on (that needs root), `body` throws or returns an
/// empty text, or it takes longer than `limit`. For processes without other threads.
std::optional<std::string> resultAs(const Account& account,
                                    const std::function<std::string()>& body,
                                    std::chrono::milliseconds limit);

}  // namespace orvane

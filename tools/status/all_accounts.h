// The reports of all accounts of a machine.
#pragma once

#include "platform/machine/accounts.h"
#include "status/verdict.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::status {

/// What one account's process reports.
struct AccountReport {
    std::string account;
    Verdict verdict;
    std::string text;  ///< in the requested format
};

/// `report` as one string, and back. An unreadable string counts as the verdict unknown.
std::string packed(const AccountReport& report);
AccountReport unpacked(const std::string& account, const std::string& text);

/// Whether `account` can have a daemon: it is not a system account, and has a home directory.
bool canHaveDaemon(const Account& account);

/// Has each of `accounts` that can have a daemon report about itself, by `report` in a process with
/// its rights: nothing that an account puts into its files is read with root's.
std::vector<AccountReport> reportsOfAll(const std::vector<Account>& accounts,
                                        const std::function<AccountReport()>& report);

/// The verdict on a machine: its worst account's. Accounts that are not logged in do not count
/// unless there are no others.
Verdict overall(const std::vector<AccountReport>& reports);

}  // namespace orvane::status

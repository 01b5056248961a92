#include "status/all_accounts.h"

#include "status/service.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

namespace orvane::status {

namespace {

constexpr std::string_view notLoggedIn = "not-logged-in";

Verdict noAnswer() {
    return {.level = Level::unknown,
            .problem = "no-answer",
            .reason = "it could not be looked at within 10 seconds",
            .advice = "look at its home directory, and at processes of it that are stopped"};
}

/// Takes the first line off the front of `text`.
std::string takeLine(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    return std::string(line);
}

}  // namespace

std::string packed(const AccountReport& report) {
    const Verdict& verdict = report.verdict;
    return std::to_string(static_cast<int>(verdict.level)) + "\n" + verdict.problem + "\n" +
           verdict.reason + "\n" + verdict.advice + "\n" + report.text;
}

AccountReport unpacked(const std::string& account, const std::string& text) {
    std::string_view rest = text;
    const std::string level = takeLine(rest);
    constexpr std::string_view levels = "0123";
    const auto number = level.size() == 1 ? levels.find(level) : std::string_view::npos;
    if (number == std::string_view::npos) {
        return {.account = account, .verdict = noAnswer(), .text = ""};
    }
    AccountReport report;
    report.account = account;
    report.verdict.level = static_cast<Level>(number);
    report.verdict.problem = takeLine(rest);
    report.verdict.reason = takeLine(rest);
    report.verdict.advice = takeLine(rest);
    report.text = rest;
    return report;
}

bool canHaveDaemon(const Account& account) {
    constexpr std::uint32_t nobody = 65534;
    std::error_code error;
    return account.user >= firstOrdinaryUser && account.user != nobody &&
           std::filesystem::is_directory(account.home, error);
}

std::vector<AccountReport> reportsOfAll(const std::vector<Account>& accounts,
                                        const std::function<AccountReport()>& report) {
    constexpr std::chrono::seconds timeLimit(10);
    std::vector<AccountReport> reports;
    for (const Account& account : accounts) {
        if (canHaveDaemon(account)) {
            const auto result = resultAs(
                account, [&] { return packed(report()); }, timeLimit);
            reports.push_back(unpacked(account.name, result.value_or("")));
        }
    }
    return reports;
}

Verdict overall(const std::vector<AccountReport>& reports) {
    const bool isAnyLoggedIn = std::any_of(
        reports.begin(), reports.end(),
        [](const AccountReport& report) { return report.verdict.problem != notLoggedIn; });
    if (!isAnyLoggedIn) {
        return {.level = Level::unknown,
                .problem = "nobody",
                .reason = "no account is logged in, so no daemon runs now",
                .advice = "nothing needs to be done"};
    }
    Verdict worst;
    for (const AccountReport& report : reports) {
        if (report.verdict.problem != notLoggedIn &&
            worse(worst.level, report.verdict.level) != worst.level) {
            worst = report.verdict;
            worst.reason = report.account + ": " + worst.reason;
        }
    }
    return worst;
}

}  // namespace orvane::status

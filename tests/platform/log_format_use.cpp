// Compiled, never run: the uses that must compile and, one per value of MISUSE, those that must
// not.
#include "platform/log/logger.h"

#include <string>

void use(const orvane::Logger& logger, const std::string& text, std::int32_t pid,
         std::int64_t bytes, bool enabled) {
    logger.log("starting (pid=%{public}d)", pid);
    logger.error("failed: %{public}s, %{public}s", text, "reason");
    logger.debug("%ld bytes, enabled=%{bool,public}d", bytes, enabled);
#if MISUSE == 1  // an integer of another size
    logger.log("%{public}ld bytes", pid);
#elif MISUSE == 2  // text for a number
    logger.log("%{public}d", text);
#elif MISUSE == 3  // an argument too few
    logger.log("%{public}s failed: %{public}s", text);
#elif MISUSE == 4  // an argument too many
    logger.log("no conversion", text);
#elif MISUSE == 5  // a format that is not a literal
    logger.log(text.c_str());
#elif MISUSE == 6  // an unknown mark
    logger.log("%{secret}s", text);
#endif
}

#include "control_plane/api.h"

#include "platform/text/text.h"

namespace orvane::api {

std::string urlOf(std::string_view apiUrl, std::string_view endpoint) {
    return std::string(text::trimmed(apiUrl, '/')).append(endpoint);
}

}  // namespace orvane::api

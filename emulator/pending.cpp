#include "emulator/pending.h"

#include "emulator/front/front.h"

#include <cstddef>
#include <map>

namespace orvane::emulator {
namespace {

constexpr std::size_t maxBodyBytes = std::size_t{64} << 20;

std::string headerOf(MHD_Connection* connection, const char* name) {
    const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? "" : value;
}

MHD_Result addQueryItem(void* query, MHD_ValueKind, const char* name, size_t nameSize,
                        const char* value, size_t valueSize) {
    auto& items = *static_cast<std::map<std::string, std::string>*>(query);
    items.try_emplace(std::string(name, nameSize),
                      value == nullptr ? std::string() : std::string(value, valueSize));
    return MHD_YES;
}

}  // namespace

void readHeaders(MHD_Connection* connection, const char* method, const char* path,
                 Pending& pending) {
    Request& request = pending.request;
    request.method = method;
    request.path = path;
    MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, addQueryItem, &request.query);
    request.apiKey = headerOf(connection, "X-Orv-Key");
    request.device = headerOf(connection, "X-Orv-Device");
    request.tenant = headerOf(connection, "X-Orv-Tenant");
    request.ifNoneMatch = headerOf(connection, "If-None-Match");
    request.host = headerOf(connection, "Host");
    request.origin = headerOf(connection, "Origin");
    request.isHttp2 = headerOf(connection, "Via") == front::via;
    pending.exchange.method = request.method;
    pending.exchange.isHttp2 = request.isHttp2;
    pending.exchange.userAgent = headerOf(connection, "User-Agent");
    pending.exchange.ifNoneMatch = request.ifNoneMatch;
    pending.headersRead = true;
}

void readBody(std::string_view bytes, Request& request) {
    request.bodyTooLong |= bytes.size() > maxBodyBytes - request.body.size();
    if (!request.bodyTooLong) {
        request.body += bytes;
    }
}

}  // namespace orvane::emulator

// HTTPS to servers that a test's own authority vouches for, which the machine's trust store knows.
#pragma once

#include "platform/http/http_session.h"
#include "platform/http_exchange.h"
#include "platform/machine/paths.h"
#include "support/scripted_server.h"
#include "support/test_ca.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace orvane::test {

/// The error for a certificate that does not speak for `host`, up to the library's reason.
inline std::string invalidCertificate(const std::string& host) {
    return "The certificate for this server is invalid. You might be connecting to a server that "
           "is "
           "pretending to be “" +
           host + "” which could put your confidential information at risk. (";
}

class TlsTest : public HttpTest {
  protected:
    TlsTest() { ca.trustIn(paths::certificateDirectory()); }

    /// How a request with a credential to `server` ends.
    HttpResult ask(const ScriptedServer& server) {
        return fetch(session, requestFor(server.url() + "/p", {{"X-Orv-Key", "key-1"}}));
    }

    /// Expects that a server with `identity` is not trusted and learns nothing.
    void expectUntrusted(const TlsIdentity& identity) {
        const ScriptedServer server(identity);
        const auto result = ask(server);
        EXPECT_FALSE(result.response());
        EXPECT_THAT(result.error(),
                    ::testing::Optional(::testing::StartsWith(invalidCertificate("localhost"))));
        EXPECT_THAT(server.requests(), ::testing::IsEmpty());
    }

    TestCa ca;
    HttpSession session{limits};
};

}  // namespace orvane::test

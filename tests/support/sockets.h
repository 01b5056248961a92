// TCP sockets over IPv4 that no child process inherits.
#pragma once

namespace orvane::test {

/// A new one; negative when there can be none.
int tcpSocket();

/// The next connection to `listener`; negative when there is none.
int acceptFrom(int listener);

}  // namespace orvane::test

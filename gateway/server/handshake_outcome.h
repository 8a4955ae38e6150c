// How the opening of a connection's secure session ended (see Transport::handshake).
#pragma once

namespace korva::gateway {

enum class HandshakeOutcome {
    kDone,       // the session is up (plain transports: at once)
    kTimedOut,   // the handshake did not complete before its expiry
    kPlaintext,  // the client spoke plain HTTP: it got a 400 saying so, then the close
    kClosed,     // the client left before the session was up
    kRefused,    // a TLS failure: protocol version, cipher, malformed records, not TLS at all
};

}  // namespace korva::gateway

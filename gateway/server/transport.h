// The byte stream under one Connection: plain TCP or TLS over TCP. The connection keeps all of
// its HTTP logic and calls these few primitives; a transport only moves bytes.
//
// Every operation is asynchronous, completes on the connection's strand (the executor of the
// socket the transport was made from) and is started from that strand. One read and one write
// may be pending at the same time, never two of either. Timeouts are those of the lowest layer
// (tcp()): expiry closes the socket and ends pending operations with beast::error::timeout;
// cancelling the socket's operations ends them with operation_aborted and leaves the transport
// usable.
//
// Ownership: owned by its Connection. Thread safety: none (strand only).
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "gateway/server/handshake_outcome.h"

namespace korva::gateway {

using RequestParser = boost::beast::http::request_parser<boost::beast::http::string_body>;

struct HandshakeResult {
    HandshakeOutcome outcome = HandshakeOutcome::kDone;
    bool resumed = false;  // kDone: an earlier session was resumed
    std::string detail;    // the failure as reported by the TLS library ("" when done)
};

class Transport {
  public:
    using IoHandler = std::function<void(boost::beast::error_code, std::size_t)>;
    using HandshakeHandler = std::function<void(const HandshakeResult&)>;

    virtual ~Transport() = default;

    // The lowest layer: expiry, cancellation, endpoints, closing.
    virtual boost::beast::tcp_stream& tcp() = 0;
    // True for TLS.
    virtual bool secure() const = 0;

    // Opens the session within the expiry the caller set on tcp(). Plain: done at once.
    virtual void handshake(HandshakeHandler done) = 0;
    virtual void readSome(boost::asio::mutable_buffer buffer, IoHandler done) = 0;
    // Some of the bytes of `buffers`, in order, in one write of the stream (the buffers and
    // what they point to must stay valid until `done`, which gets the count written).
    virtual void writeSome(std::span<const boost::asio::const_buffer> buffers, IoHandler done) = 0;
    // All of the bytes (the buffer must stay valid until `done`).
    virtual void writeAll(boost::asio::const_buffer buffer, IoHandler done) = 0;
    // http::async_read_header / http::async_read over this transport.
    virtual void readHeader(boost::beast::flat_buffer& buffer, RequestParser& parser,
                            IoHandler done) = 0;
    virtual void readMessage(boost::beast::flat_buffer& buffer, RequestParser& parser,
                             IoHandler done) = 0;
    // Ends the sending direction (TLS: close_notify first, then waits within the expiry for the
    // peer's); `done` runs once the peer may see the end. Called with no read or write pending.
    virtual void shutdownSend(std::function<void()> done) = 0;
};

std::unique_ptr<Transport> makePlainTransport(boost::asio::ip::tcp::socket socket);
// The context must outlive the transport.
std::unique_ptr<Transport> makeTlsTransport(boost::asio::ip::tcp::socket socket,
                                            boost::asio::ssl::context& context);

}  // namespace korva::gateway

#include "gateway/server/transport.h"

#include <openssl/ssl.h>

#include <array>
#include <boost/asio/ssl/error.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <string_view>

namespace korva::gateway {

namespace net = boost::asio;
namespace http = boost::beast::http;
using boost::beast::error_code;

namespace {

// The first byte of every TLS connection: a handshake record.
constexpr unsigned char kTlsHandshakeRecord = 0x16;
// What a plain-HTTP client gets on the TLS port before the connection closes.
constexpr std::string_view kPlaintextAnswer =
    "HTTP/1.1 400 Bad Request\r\n"
    "Content-Type: text/plain\r\n"
    "Content-Length: 51\r\n"
    "Connection: close\r\n"
    "\r\n"
    "This port speaks HTTPS: send the request over TLS.\n";
// How long the plain-HTTP client's remaining bytes are discarded after that answer, so that
// closing with unread bytes does not reset the answer away.
constexpr std::chrono::milliseconds kPlaintextLinger{500};

// A request line starts with an upper-case method token; anything else is no HTTP client.
bool looksLikeHttp(unsigned char first) {
    return first >= 'A' && first <= 'Z';
}

HandshakeResult failure(error_code ec) {
    if (ec == boost::beast::error::timeout) return {HandshakeOutcome::kTimedOut, false, ""};
    if (ec == net::error::eof || ec == net::error::connection_reset ||
        ec == net::error::operation_aborted || ec == net::ssl::error::stream_truncated) {
        return {HandshakeOutcome::kClosed, false, ec.message()};
    }
    return {HandshakeOutcome::kRefused, false, ec.message()};
}

// The stream-independent half: Beast's operations on any stream.
template <class Stream>
class StreamTransport : public Transport {
  public:
    template <class... Args>
    explicit StreamTransport(Args&&... args) : m_stream(std::forward<Args>(args)...) {}

    void readSome(net::mutable_buffer buffer, IoHandler done) override {
        m_stream.async_read_some(buffer, std::move(done));
    }
    void writeSome(std::span<const net::const_buffer> buffers, IoHandler done) override {
        m_stream.async_write_some(buffers, std::move(done));
    }
    void writeAll(net::const_buffer buffer, IoHandler done) override {
        net::async_write(m_stream, buffer, std::move(done));
    }
    void readHeader(boost::beast::flat_buffer& buffer, RequestParser& parser,
                    IoHandler done) override {
        http::async_read_header(m_stream, buffer, parser, std::move(done));
    }
    void readMessage(boost::beast::flat_buffer& buffer, RequestParser& parser,
                     IoHandler done) override {
        http::async_read(m_stream, buffer, parser, std::move(done));
    }

  protected:
    Stream m_stream;
};

class PlainTransport final : public StreamTransport<boost::beast::tcp_stream> {
  public:
    explicit PlainTransport(net::ip::tcp::socket socket) : StreamTransport(std::move(socket)) {}

    boost::beast::tcp_stream& tcp() override { return m_stream; }
    bool secure() const override { return false; }
    void handshake(HandshakeHandler done) override { done(HandshakeResult{}); }
    void shutdownSend(std::function<void()> done) override {
        error_code ignored;
        m_stream.socket().shutdown(net::ip::tcp::socket::shutdown_send, ignored);
        done();
    }
};

class TlsTransport final
    : public StreamTransport<boost::beast::ssl_stream<boost::beast::tcp_stream>> {
  public:
    TlsTransport(net::ip::tcp::socket socket, net::ssl::context& context)
        : StreamTransport(std::move(socket), context) {}

    boost::beast::tcp_stream& tcp() override { return m_stream.next_layer(); }
    bool secure() const override { return true; }

    void handshake(HandshakeHandler done) override {
        // The first bytes are read on TCP to tell a TLS client from a plain-HTTP one; a TLS
        // client's bytes are then handed to the handshake.
        tcp().async_read_some(net::buffer(m_first),
                              [this, done = std::move(done)](error_code ec, std::size_t n) mutable {
                                  if (ec) return done(failure(ec));
                                  onFirstBytes(n, std::move(done));
                              });
    }

    void shutdownSend(std::function<void()> done) override {
        // close_notify, then the peer's (or the expiry, or an error): either way the peer has
        // seen the end.
        m_stream.async_shutdown([done = std::move(done)](error_code) { done(); });
    }

  private:
    void onFirstBytes(std::size_t n, HandshakeHandler done) {
        const auto first = static_cast<unsigned char>(m_first[0]);
        if (first == kTlsHandshakeRecord) {
            m_stream.async_handshake(
                net::ssl::stream_base::server, net::buffer(m_first.data(), n),
                [this, done = std::move(done)](error_code ec, std::size_t) {
                    if (ec) return done(failure(ec));
                    done({HandshakeOutcome::kDone,
                          SSL_session_reused(m_stream.native_handle()) == 1, ""});
                });
            return;
        }
        if (!looksLikeHttp(first)) return done({HandshakeOutcome::kRefused, false, "not TLS"});
        net::async_write(tcp(), net::buffer(kPlaintextAnswer.data(), kPlaintextAnswer.size()),
                         [this, done = std::move(done)](error_code ec, std::size_t) mutable {
                             if (ec) return done(failure(ec));
                             error_code ignored;
                             tcp().socket().shutdown(net::ip::tcp::socket::shutdown_send, ignored);
                             tcp().expires_after(kPlaintextLinger);
                             discardRest(std::move(done));
                         });
    }

    void discardRest(HandshakeHandler done) {
        tcp().async_read_some(net::buffer(m_first),
                              [this, done = std::move(done)](error_code ec, std::size_t) mutable {
                                  if (ec) return done({HandshakeOutcome::kPlaintext, false, ""});
                                  discardRest(std::move(done));
                              });
    }

    std::array<char, 2048> m_first{};
};

}  // namespace

std::unique_ptr<Transport> makePlainTransport(net::ip::tcp::socket socket) {
    return std::make_unique<PlainTransport>(std::move(socket));
}

std::unique_ptr<Transport> makeTlsTransport(net::ip::tcp::socket socket,
                                            net::ssl::context& context) {
    return std::make_unique<TlsTransport>(std::move(socket), context);
}

}  // namespace korva::gateway

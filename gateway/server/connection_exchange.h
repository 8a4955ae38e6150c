// The exchange behind one request read on a socket connection: what the protocol plug-in reads
// (URL, method, headers, body) and how its answers reach the connection.
//
// Answers (see host/http_exchange.h for the plug-in's view):
//  - complete: respond() hands status, headers and body to the connection as one answer with
//    Content-Length and returns the length at once;
//  - stream: after setStreamMime(), respond(nullptr, 0) queues the head; each later respond()
//    hands its bytes to the connection's bounded stream queue and returns at once: the length
//    when the part was accepted, kLinkBroken when it was not (peer gone, stream ended, queue
//    full: the connection then closes, or the request is no longer the connection's stream).
//    Nothing here waits for the socket, so a slow reader never holds up the caller.
//  - the exchange handed to the plug-in (pluginExchange) reports when the plug-in lets go of it:
//    a stream whose exchange the plug-in no longer holds has ended, and its connection closes.
// Thread-safe; no lock is held while the connection writes.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "gateway/hostlib/exchange_backend.h"
#include "gateway/server/connection.h"
#include "gateway/server/stream_table.h"

namespace korva::gateway {

class ConnectionExchange : public QXHttpService::ExchangeBackend {
  public:
    // `streams`, when given, lists the stream this request may become (may be null).
    ConnectionExchange(const std::shared_ptr<Connection>& connection, HttpRequest request,
                       StreamTable* streams = nullptr);
    ~ConnectionExchange() override;

    std::string url() const override { return m_url; }
    unsigned char method() const override { return m_method; }
    std::string header(const std::string& name) const override;
    std::string peer() const override { return m_peerAddress; }

    void setHeader(const std::string& name, const std::string& value) override;
    void setStatus(int status) override;
    void setMime(const std::string& mime) override;
    void setStreamMime() override;
    int respond(const void* data, int length) override;

    // ---- Server side ----
    // The NUL-terminated request body.
    const std::string& body() const { return m_request.body(); }
    // Takes the right to send the one complete answer; false when it was taken already.
    bool claimAnswer();
    // Headers set so far, with the Content-Type chosen by setMime when none was set directly.
    HeaderList answerHeaders() const;
    // The request has ended: later writes report kLinkBroken.
    void finish();

    static unsigned char methodCode(boost::beast::http::verb verb);

    // The exchange object given to the plug-in for this request (ExchangeHolder::exchange).
    // When its last owner lets go after the stream head was sent, the stream ends
    // (Connection::endStream).
    static std::shared_ptr<QXHttpService::CHttpExchange> pluginExchange(
        const std::shared_ptr<ConnectionExchange>& backend);

  private:
    void pluginReleased() noexcept;
    HeaderList headersLocked() const;

    const std::weak_ptr<Connection> m_connection;
    const std::uint64_t m_serial;
    const HttpRequest m_request;
    const std::string m_url;
    const unsigned char m_method;
    const std::string m_peerAddress;  // the connection's peer without port

    mutable std::mutex m_mutex;
    int m_status = 200;
    HeaderList m_headers;
    std::string m_mime;
    bool m_stream = false;
    bool m_answered = false;
    std::atomic<bool> m_finished{false};
    StreamTable* const m_streams;
    std::shared_ptr<StreamTable::Entry> m_streamEntry;  // guarded; set once the head is queued
};

}  // namespace korva::gateway

// One HTTP request/response exchange of the host's HTTP service.
//
// The host builds an exchange for every request and hands it to the protocol plug-in inside an
// ExchangeHolder. Any thread can rebuild an exchange of a still-open request from its integer
// handle (getHttpHandle); handles are unique and never reused while a connection may still be
// referred to. An exchange rebuilt from a handle whose connection is gone is "detached": its
// getters return empty values, its setters do nothing and response() returns kLinkBroken.
//
// Answers:
//  - Synchronous: the plug-in returns from QX_Protocol_HTTPProcess; headers it set with setHead
//    are sent with the returned status and body.
//  - Asynchronous: setHead/setStatus, then response(body, n) sends one complete response with
//    Content-Length; returns n once handed to the connection.
//  - Stream: setMIME() (multipart/mixed; boundary=boundary), setStatus(200), response(nullptr, 0)
//    sends the head (no Content-Length, Connection: close); every later response(data, n) hands
//    the bytes, as they are, to the connection's bounded output queue without waiting for the
//    socket: n when they were taken, kLinkBroken when they were not (peer gone, stream ended, or
//    the queue full, in which case the host closes the connection). The host ends the stream and
//    closes its connection once the plug-in releases the request's exchange object.
// Thread safety: an exchange object is used by one thread at a time; different exchange objects
// of one handle may be used from different threads (the connection serialises writes).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace QXHttpService {

// Host-internal implementation of an exchange (a socket connection or a test double).
class ExchangeBackend;

// Method codes of getMethod.
enum : unsigned char {
    kMethodGet = 0,
    kMethodPut = 1,
    kMethodPost = 2,
    kMethodDelete = 3,
    kMethodOther = 0xFF,
};

class CHttpExchange {
  public:
    // Result of response() once the peer is gone.
    static constexpr int kLinkBroken = static_cast<int>(0xF0F0F0F0u);

    // Rebuilds the exchange of a request from its handle (detached when unknown).
    explicit CHttpExchange(int httpHandle);
    // Host side: wraps a backend.
    explicit CHttpExchange(std::shared_ptr<ExchangeBackend> backend);
    ~CHttpExchange();
    CHttpExchange(const CHttpExchange&) = delete;
    CHttpExchange& operator=(const CHttpExchange&) = delete;

    // Request target as received: path and query.
    std::string getUrl() const;
    // 0 GET, 1 PUT, 2 POST, 3 DELETE, 0xFF any other method.
    unsigned char getMethod() const;
    // Value of a request header (case-insensitive name), "" when absent.
    std::string getHead(const std::string& name) const;
    // -1 when detached.
    int getHttpHandle() const;

    // Answer header, replacing an earlier value of the same name.
    void setHead(const std::string& name, const std::string& value);
    void setStatus(int status);
    // Content type of a plain answer.
    void setMIME(const std::string& mime);
    // Turns the answer into a multipart stream: multipart/mixed; boundary=boundary.
    void setMIME();
    int response(const void* data, int length);

    // True when the exchange is bound to an open request.
    bool isAttached() const;

  private:
    std::shared_ptr<ExchangeBackend> m_backend;
};

}  // namespace QXHttpService

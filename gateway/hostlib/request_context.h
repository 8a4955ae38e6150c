// The request a host service is called for. A protocol plug-in calls some host services (the
// digest check) synchronously from QX_Protocol_HTTPProcess without passing the request itself;
// the gateway makes the request current on the calling thread for the length of that call, so
// the host can read what the plug-in does not pass: the connection's peer and the request target.
//
// Contract: the gateway opens a RequestScope on the thread that calls QX_Protocol_HTTPProcess,
// around that call only. The context must outlive the scope. Scopes nest (the inner one is
// current until it ends). Outside any scope currentRequest() is null: the in-process test harness
// calls the plug-in without one, korva-gateway never does.
// Thread safety: the current request is per thread; nothing is shared between threads.
#pragma once

#include <string>

namespace korva::host {

struct RequestContext {
    std::string peerAddress;  // the connection's peer IP address, without port ("" unknown)
    std::string target;       // the request target as sent (origin or absolute form)
    std::string method;       // the request method as sent ("GET", ...)
};

class RequestScope {
  public:
    explicit RequestScope(const RequestContext& context);
    ~RequestScope();
    RequestScope(const RequestScope&) = delete;
    RequestScope& operator=(const RequestScope&) = delete;

  private:
    const RequestContext* m_outer;
};

// The calling thread's current request, or null outside any scope.
const RequestContext* currentRequest();

}  // namespace korva::host

// The KORVA listener's request handler: every request goes to the protocol plug-in's
// QX_Protocol_HTTPProcess on the I/O thread that read it, and its result becomes the answer.
//
//  - handled 1, asyncReply 0: status = the returned value, body = response, headers from setHead;
//    a body without a Content-Type gets addDefaultContentType's.
//  - handled 0: 403, Content-Type application/json, body = response.
//  - asyncReply 1: the plug-in answers later on the exchange (complete answer or stream).
// Once stop() was called the plug-in is no longer entered and requests get 503.
// Thread safety: onRequest runs on any I/O thread; stop() may be called from any thread.
#pragma once

#include <condition_variable>

#include "gateway/hostlib/mutex.h"
#include "gateway/server/connection.h"
#include "gateway/server/plugin_loader.h"

namespace korva::gateway {

class StreamTable;

class PluginHandler : public RequestHandler {
  public:
    explicit PluginHandler(const PluginApi& api) : m_api(api) {}

    // Where the alert streams opened by requests are listed (set before serving; may be null).
    void setStreamTable(StreamTable* streams) { m_streams = streams; }

    void onRequest(const std::shared_ptr<Connection>& connection, HttpRequest&& request) override;

    // Refuses new calls into the plug-in and waits until the calls under way have returned
    // (they never block, so this is short). After it returns the plug-in may be uninitialised.
    void stop();

  private:
    const PluginApi m_api;
    StreamTable* m_streams = nullptr;
    // Admits one call into the plug-in unless stop() was called; false = refuse.
    bool enter();
    void leave();

    Mutex m_mutex;
    std::condition_variable_any m_idle;  // signalled when the last call under way returns
    bool m_stopping GUARDED_BY(m_mutex) = false;
    int m_inFlight GUARDED_BY(m_mutex) = 0;
};

}  // namespace korva::gateway

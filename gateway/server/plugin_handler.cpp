#include "gateway/server/plugin_handler.h"

#include "gateway/hostlib/request_context.h"
#include "gateway/server/connection_exchange.h"
#include "gateway/server/default_content_type.h"
#include "gateway/server/json_error.h"
#include "host/exchange_holder.h"

namespace korva::gateway {

namespace {

struct CallResult {
    int status = 0;
    int handled = 0;
    int asyncReply = 0;
    std::string response;
    bool failed = false;
};

// "192.0.2.1" of "192.0.2.1:5000", "2001:db8::1" of "[2001:db8::1]:5000".
std::string addressOf(const std::string& peer) {
    if (!peer.empty() && peer.front() == '[') return peer.substr(1, peer.find(']') - 1);
    return peer.substr(0, peer.rfind(':'));
}

CallResult callPlugin(const PluginApi& api, const std::shared_ptr<ConnectionExchange>& backend,
                      const korva::host::RequestContext& context) {
    CallResult result;
    ExchangeHolder holder;
    holder.exchange = ConnectionExchange::pluginExchange(backend);
    holder.body = backend->body().c_str();
    const korva::host::RequestScope scope(context);  // the digest check reads peer and target
    try {
        result.status = api.process(&result.handled, &result.response, &result.asyncReply, holder);
    } catch (...) {
        result.failed = true;  // nothing may cross the plug-in boundary; answer 500
    }
    return result;
}

}  // namespace

void PluginHandler::onRequest(const std::shared_ptr<Connection>& connection,
                              HttpRequest&& request) {
    korva::host::RequestContext context{
        addressOf(connection->peer()), std::string(request.target()),
        connection->headRequest() ? std::string("HEAD") : std::string(request.method_string())};
    auto backend = std::make_shared<ConnectionExchange>(connection, std::move(request), m_streams);
    const int handle = QXHttpService::ExchangeRegistry::instance().add(backend);
    if (handle < 0) {  // every handle is in use: refuse now, the plug-in could not answer later
        connection->answer(503, {{"Content-Type", "application/json"}, {"Retry-After", "1"}},
                           jsonError(503, "too many requests in progress"));
        return;
    }
    connection->setRequestCleanup([backend, handle] {
        backend->finish();
        QXHttpService::ExchangeRegistry::instance().remove(handle);
    });

    if (!enter()) {
        connection->answer(503, {{"Content-Type", "application/json"}},
                           jsonError(503, "the gateway is stopping"));
        return;
    }
    CallResult result = callPlugin(m_api, backend, context);
    leave();

    if (!result.failed && result.asyncReply == 1) {
        connection->awaitAnswer();
        return;
    }
    if (!backend->claimAnswer()) {
        connection->awaitAnswer();  // already answered through the exchange; it is queued
        return;
    }
    if (result.failed) {
        connection->answer(500, {{"Content-Type", "application/json"}},
                           jsonError(500, "the protocol plug-in failed"));
    } else if (result.handled == 0) {
        connection->answer(403, {{"Content-Type", "application/json"}}, std::move(result.response));
    } else {
        HeaderList headers = backend->answerHeaders();
        addDefaultContentType(headers, result.response);
        const int status = result.status >= 100 && result.status <= 599 ? result.status : 500;
        connection->answer(status, headers, std::move(result.response));
    }
}

bool PluginHandler::enter() {
    MutexLock lock(m_mutex);
    if (m_stopping) return false;
    ++m_inFlight;
    return true;
}

void PluginHandler::leave() {
    MutexLock lock(m_mutex);
    if (--m_inFlight == 0 && m_stopping) m_idle.notify_all();
}

void PluginHandler::stop() {
    MutexLock lock(m_mutex);
    m_stopping = true;
    while (m_inFlight != 0) m_idle.wait(lock);
}

}  // namespace korva::gateway

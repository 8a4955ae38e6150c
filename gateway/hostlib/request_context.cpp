#include "gateway/hostlib/request_context.h"

namespace korva::host {

namespace {
thread_local const RequestContext* tlsCurrent = nullptr;
}  // namespace

RequestScope::RequestScope(const RequestContext& context) : m_outer(tlsCurrent) {
    tlsCurrent = &context;
}

RequestScope::~RequestScope() {
    tlsCurrent = m_outer;
}

const RequestContext* currentRequest() {
    return tlsCurrent;
}

}  // namespace korva::host

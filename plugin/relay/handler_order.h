// The relay needs the device-relay handlers in chain order to convert answers; the order itself
// is defined once, in entry/handler_chain.cpp, which provides this function.
#pragma once

#include <cstddef>
#include <memory>

namespace QXKORVAProtocol {

class CDevCfgBase;

using DevCfgHandlerFactory = std::unique_ptr<CDevCfgBase> (*)();

// The factories of the six device-relay handlers, in chain order; *count receives how many.
const DevCfgHandlerFactory* devCfgHandlerOrder(size_t* count);

}  // namespace QXKORVAProtocol

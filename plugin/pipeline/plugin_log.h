// Logging of the plug-in: every line goes to the host log with module tag "QXW" and starts
// with "[<qualified function name>(<source line>)] ".
#pragma once

#include <string>
#include <string_view>

#include "host/qx_log.h"

namespace QXKORVAProtocol {

// "QXKORVAProtocol::CDevCfgBase::procProtocol" from a __PRETTY_FUNCTION__ text such as
// "virtual int QXKORVAProtocol::CDevCfgBase::procProtocol(int*, ...)".
std::string qualifiedFunctionName(std::string_view prettyFunction);

}  // namespace QXKORVAProtocol

// QXW_LOG(level, "format", args...): the format must not contain the "[%s(%d)] " prefix.
// The name is computed once per call site and never destroyed, so host threads that still log
// while the process exits do not read a destroyed string.
#define QXW_LOG(level, format, ...)                                                         \
    do {                                                                                    \
        static const std::string* const qxwFunctionName_ =                                  \
            new std::string(::QXKORVAProtocol::qualifiedFunctionName(__PRETTY_FUNCTION__)); \
        ::QX_Log_Print((level), "QXW", "[%s(%d)] " format, qxwFunctionName_->c_str(),       \
                       __LINE__ __VA_OPT__(, ) __VA_ARGS__);                                \
    } while (0)

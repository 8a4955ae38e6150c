#include "gateway/server/access_log.h"

#include <strings.h>

#include <atomic>
#include <cstdio>
#include <ctime>

#include "gateway/hostlib/time_text.h"
#include "host/qx_log.h"

namespace korva::gateway {

namespace {

std::atomic<AccessObserver*> gObserver{nullptr};

std::string orDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

}  // namespace

std::string logSafe(std::string_view text, std::size_t maxBytes) {
    std::string out;
    const bool cut = text.size() > maxBytes;
    if (cut) text = text.substr(0, maxBytes);
    out.reserve(text.size());
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);  // bytes above 0x7f are escaped too
        if (c < 0x20 || c >= 0x7f || c == '"' || c == '\\') {
            char escape[5];
            std::snprintf(escape, sizeof escape, "\\x%02X", c);
            out += escape;
        } else {
            out += ch;
        }
    }
    if (cut) out += "...";
    return out;
}

std::string authorizationUser(std::string_view authorization) {
    constexpr std::string_view kScheme = "Digest ";
    if (authorization.size() < kScheme.size() ||
        strncasecmp(authorization.data(), kScheme.data(), kScheme.size()) != 0) {
        return "";
    }
    // The parameter name at the start of the value or after a comma and spaces.
    std::size_t at = kScheme.size();
    while (at < authorization.size()) {
        while (at < authorization.size() &&
               (authorization[at] == ' ' || authorization[at] == ',' || authorization[at] == '\t'))
            ++at;
        const auto equals = authorization.find('=', at);
        if (equals == std::string_view::npos) return "";
        const std::string_view name = authorization.substr(at, equals - at);
        std::size_t valueStart = equals + 1;
        std::size_t valueEnd;
        if (valueStart < authorization.size() && authorization[valueStart] == '"') {
            ++valueStart;
            valueEnd = authorization.find('"', valueStart);
            if (valueEnd == std::string_view::npos) return "";
            at = valueEnd + 1;
        } else {
            valueEnd = authorization.find(',', valueStart);
            if (valueEnd == std::string_view::npos) valueEnd = authorization.size();
            at = valueEnd;
            while (valueEnd > valueStart &&
                   (authorization[valueEnd - 1] == ' ' || authorization[valueEnd - 1] == '\t'))
                --valueEnd;
        }
        if (name.size() == 8 && strncasecmp(name.data(), "username", 8) == 0) {
            return std::string(authorization.substr(valueStart, valueEnd - valueStart));
        }
    }
    return "";
}

std::string formatAccessLine(const AccessRecord& record) {
    const double seconds = std::chrono::duration<double>(record.duration).count();
    char tail[64];
    std::snprintf(tail, sizeof tail, "\" %d %zu %.3f", record.status, record.bytes, seconds);
    std::string line = orDash(record.client);
    line += " - ";
    line += record.user.empty() ? "-" : logSafe(record.user, 64);
    line += " [";
    line += korva::host::timestampText(record.arrival, korva::host::TimeZone::kLocal);
    line += "] \"";
    line += record.method.empty() ? "-" : logSafe(record.method, 32);
    line += ' ';
    line += record.target.empty() ? "-" : logSafe(record.target);
    if (!record.version.empty()) {
        line += ' ';
        line += record.version;
    }
    line += tail;
    return line;
}

void writeAccessLine(const char* tag, const AccessRecord& record) {
    QX_Log_Print(kAccessLogLevel, tag, "%s", formatAccessLine(record).c_str());
    if (AccessObserver* observer = gObserver.load(std::memory_order_acquire)) {
        observer->onAccess(tag, record);
    }
}

void setAccessObserver(AccessObserver* observer) {
    gObserver.store(observer, std::memory_order_release);
}

void removeAccessObserver(AccessObserver* observer) {
    gObserver.compare_exchange_strong(observer, nullptr, std::memory_order_acq_rel);
}

}  // namespace korva::gateway

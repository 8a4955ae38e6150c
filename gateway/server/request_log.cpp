#include "gateway/server/request_log.h"

#include <json/writer.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "gateway/hostlib/json_text.h"
#include "gateway/hostlib/time_text.h"
#include "gateway/server/admin_events.h"

namespace korva::gateway {

void RequestLog::onAccess(const char* tag, const AccessRecord& record) noexcept {
    if (tag != nullptr && std::strcmp(tag, "ADMIN") == 0) return;
    try {
        Entry entry;
        entry.time = record.arrival;
        entry.listener = tag ? tag : "";
        entry.client = record.client;
        entry.user = logSafe(record.user, 64);
        entry.method = record.method.empty() ? "-" : logSafe(record.method, 32);
        entry.target = record.target.empty() ? "-" : logSafe(record.target, kMaxTargetBytes);
        entry.status = record.status;
        entry.bytes = record.bytes;
        entry.durationMs = std::chrono::duration<double, std::milli>(record.duration).count();
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            entry.seq = ++m_seq;
            if (m_entries.size() >= m_capacity) m_entries.pop_front();
            m_entries.push_back(entry);
        }
        if (m_events && m_events->hasSubscribers()) {
            m_events->publish("request", korva::host::writeCompactJson(entryJson(entry)));
        }
    } catch (...) {
        // Out of memory: the console misses this request; the access log has it.
    }
}

Json::Value RequestLog::entryJson(const Entry& entry) {
    Json::Value item(Json::objectValue);
    item["seq"] = static_cast<Json::UInt64>(entry.seq);
    item["time"] = korva::host::timestampText(entry.time, korva::host::TimeZone::kUtc);
    item["listener"] = entry.listener;
    item["client"] = entry.client;
    item["user"] = entry.user;
    item["method"] = entry.method;
    item["target"] = entry.target;
    item["status"] = entry.status;
    item["bytes"] = static_cast<Json::UInt64>(entry.bytes);
    item["durationMs"] =
        static_cast<double>(static_cast<long long>(entry.durationMs * 1000)) / 1000;
    return item;
}

Json::Value RequestLog::toJson() const {
    std::deque<Entry> entries;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        entries = m_entries;
    }
    Json::Value root(Json::objectValue);
    root["capacity"] = static_cast<Json::UInt64>(m_capacity);
    Json::Value& list = root["requests"] = Json::Value(Json::arrayValue);
    for (const auto& entry : entries) list.append(entryJson(entry));
    return root;
}

}  // namespace korva::gateway

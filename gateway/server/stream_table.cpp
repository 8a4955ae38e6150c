#include "gateway/server/stream_table.h"

#include <json/value.h>

#include "gateway/hostlib/json_text.h"
#include "gateway/hostlib/time_text.h"
#include "gateway/server/admin_events.h"
#include "gateway/server/request_log.h"

namespace korva::gateway {

void StreamTable::setAccountDevices(std::map<std::string, std::string> devices) {
    m_accountDevices = std::move(devices);
}

std::shared_ptr<StreamTable::Entry> StreamTable::open(std::uint64_t connectionId,
                                                      const std::string& user,
                                                      const std::string& client) {
    auto entry = std::make_shared<Entry>();
    entry->connectionId = connectionId;
    entry->user = user;
    entry->client = client;
    if (const auto it = m_accountDevices.find(user); it != m_accountDevices.end()) {
        entry->devIndex = it->second;
    }
    entry->opened = std::chrono::system_clock::now();
    entry->openedSteady = std::chrono::steady_clock::now();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        entry->id = ++m_nextId;
        m_open[entry->id] = entry;
    }
    if (m_events && m_events->hasSubscribers()) {
        Json::Value data(Json::objectValue);
        data["id"] = static_cast<Json::UInt64>(entry->id);
        data["devIndex"] = entry->devIndex;
        data["user"] = entry->user;
        data["client"] = entry->client;
        data["connection"] = static_cast<Json::UInt64>(connectionId);
        data["openedAt"] = korva::host::timestampText(entry->opened, korva::host::TimeZone::kUtc);
        m_events->publish("stream-open", korva::host::writeCompactJson(data));
    }
    return entry;
}

void StreamTable::countPart(Entry& entry, const std::string& bytes) {
    entry.parts.fetch_add(1, std::memory_order_relaxed);
    entry.bytes.fetch_add(bytes.size(), std::memory_order_relaxed);
}

void StreamTable::close(const std::shared_ptr<Entry>& entry) {
    if (!entry || entry->closed.exchange(true)) return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open.erase(entry->id);
    }
    if (m_events && m_events->hasSubscribers()) {
        Json::Value data(Json::objectValue);
        data["id"] = static_cast<Json::UInt64>(entry->id);
        data["devIndex"] = entry->devIndex;
        data["client"] = entry->client;
        data["parts"] = static_cast<Json::UInt64>(entry->parts.load());
        data["seconds"] =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - entry->openedSteady)
                .count();
        m_events->publish("stream-close", korva::host::writeCompactJson(data));
    }
}

std::vector<StreamTable::Snapshot> StreamTable::snapshot() const {
    std::vector<std::shared_ptr<Entry>> open;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        open.reserve(m_open.size());
        for (const auto& [id, entry] : m_open) open.push_back(entry);
    }
    const auto now = std::chrono::steady_clock::now();
    std::vector<Snapshot> out;
    out.reserve(open.size());
    for (const auto& e : open) {
        out.push_back({e->id, e->connectionId, e->devIndex, e->user, e->client, e->opened,
                       std::chrono::duration<double>(now - e->openedSteady).count(),
                       e->parts.load(), e->bytes.load()});
    }
    return out;
}

}  // namespace korva::gateway

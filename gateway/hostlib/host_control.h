// The gateway side of the host library: how korva-gateway and the test harness configure the
// host services that a protocol plug-in calls through host/. None of this is visible to a
// plug-in. All functions are thread-safe unless noted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/hostlib/client_address.h"
#include "host/config_mgr.h"

namespace korva::host {

// ---- Configuration -------------------------------------------------------------------------

void setUserConfig(bool activated, const std::string& realm);
// nullopt: QX_GatewayCfgBus_GetAccessProtocol returns null.
void setNetworkConfig(const std::optional<QXConfigMgr::NetworkPorts>& ports);

// ---- Digest authentication -----------------------------------------------------------------

enum class DigestAlgorithm { kMd5, kSha256 };

struct AuthSettings {
    DigestAlgorithm algorithm = DigestAlgorithm::kMd5;  // the only algorithm answers may use
    int maxAttempts = 5;    // wrong passwords before a (user, client address) is locked
    int lockSeconds = 180;  // how long a lock lasts
    int nonceLifetimeSeconds = 300;
    // Peers whose X-Forwarded-For (the check record's client address) names the client; from
    // any other peer the header is ignored and the peer itself is the client.
    std::vector<AddressRange> trustedProxies;
};

struct Account {
    std::string name;
    std::string password;
    std::string devIndex;  // device bound to the account
};

// Replaces the accounts and settings (lock-out state and nonce counts are reset).
void setAccounts(const std::vector<Account>& accounts, const AuthSettings& settings);

// Result of QX_KORVAMgrBus_CheckDigest when the digest uri does not designate the request target
// (compared as origin form: path and query, byte for byte). The plug-in turns it into 400
// "badParameters"; no attempt is counted, since no password was tried.
constexpr int kDigestUriMismatch = 4;
// Result when a check runs outside a request scope (request_context.h) and such checks are not
// allowed: a host failure, 500 "internalError". The gateway calls the plug-in inside a scope.
constexpr int kDigestNoRequest = 9;
// Allows checks outside a request scope (default: refused). For the in-process test harness,
// which calls the plug-in without sockets: such a check has no peer (every attempt counts
// against the unknown address "") and no target to compare the digest uri with.
void allowDigestChecksWithoutRequest(bool allow);

// ---- Devices and the device configuration bus ----------------------------------------------

// One request relayed by QX_DeviceCfgBus_ProcessAsyn.
struct DeviceRequest {
    int method = 0;        // 0 GET, 1 PUT, 2 POST, 3 DELETE
    std::string path;      // the gateway URL before "?"
    std::string url;       // the whole gateway URL
    std::string devIndex;  // from the URL's devIndex parameter
    std::string body;
};

// Answers one request. Call at most once, from any thread; a reply after the timeout (or
// after a detach) is dropped. Bytes are passed to the plug-in's callback as they are.
using DeviceReply = std::function<void(std::string bytes)>;

// A device reachable through the bus: a simulated camera or a scripted test device.
class DeviceEndpoint {
public:
    virtual ~DeviceEndpoint() = default;
    // Called on a bus worker thread. May reply now, later (keep the DeviceReply), or never.
    virtual void handle(const DeviceRequest& request, DeviceReply reply) = 0;
};

// Adds (or replaces) a device and marks it attached; notifies event 0 when it was detached.
void attachDevice(const std::string& devIndex, std::shared_ptr<DeviceEndpoint> endpoint);
// Marks a known device attached again (event 0). False when unknown.
bool reattachDevice(const std::string& devIndex);
// Marks a device detached: lookups fail, relays are refused, event 1 is notified. False when
// unknown or already detached.
bool detachDevice(const std::string& devIndex);
// Forgets every device (no notifications).
void clearDevices();

// Bounds on outstanding relays, so that one device or one client cannot take the whole bus. A
// relay holds a device slot and a client slot from acceptance until its answer (or the timeout,
// or its client leaving); beyond a device's or a client's bound the relay is still accepted but
// answered at once, on a bus thread, with the device-busy status object (the client gets 503 and
// may retry). maxTotal also counts answers not yet delivered; beyond it QX_DeviceCfgBus_ProcessAsyn
// refuses with result 10. A relay whose request ends (the client left) is answered at once with
// the device-busy status (nobody receives it) and frees its slots; the device's answer is then
// dropped on arrival.
struct RelayLimits {
    int maxPerDevice = 256;  // relays waiting for one device (a burst of requests included)
    int maxPerClient = 512;  // relays of one client address (ExchangeBackend::peer)
    int maxTotal = 4096;     // relays of the whole bus
};
void setRelayLimits(const RelayLimits& limits);

struct RelayStats {
    uint64_t outstanding = 0;  // relays holding slots now
    uint64_t busyDevice = 0;   // answered busy at once: the device's bound was reached
    uint64_t busyClient = 0;   // answered busy at once: the client's bound was reached
    uint64_t refusedFull = 0;  // refused with result 10: maxTotal reached
    uint64_t clientLeft = 0;   // released because the request ended before the answer
    uint64_t timedOut = 0;     // answered busy because the device did not answer in time
};
RelayStats relayStats();

struct DeviceState {
    std::string devIndex;
    bool attached = false;
};
std::vector<DeviceState> listDevices();

// ---- Alarm bus -------------------------------------------------------------------------------

// Queues one alarm document for delivery. devIndex empty: to every subscription; otherwise to
// the subscriptions that include the device. False when the bus cannot take it (1024 alarms
// already wait for delivery): the alarm is refused, and the caller tells its source.
bool publishAlarm(const std::string& devIndex, const std::string& bytes);
// Forgets every subscription (QX_AlarmBus_CheckIDValid then reports 0).
void resetAlarmBus();

struct SubscriptionState {
    int id = 0;
    bool started = false;
    std::vector<std::string> devices;
};
std::vector<SubscriptionState> listSubscriptions();
// Blocks until every alarm published before the call has been delivered (tests).
void flushAlarms();

// ---- Logging -------------------------------------------------------------------------------
//
// QX_Log_Print formats the line on the caller's thread and hands it to one writer thread through
// a bounded queue (kLogQueueBytes); the caller never waits for stderr. When the queue is full the
// line is dropped and counted. Level-5 lines of one cause (the same format string) are limited
// to kLogCauseLinesPerSecond per second; the next line of that cause after the second reports
// "suppressed K similar lines". The queue is flushed at exit.

constexpr size_t kLogQueueBytes = 1 << 20;
constexpr int kLogCauseLinesPerSecond = 20;

// Lines below this level are dropped (default 4).
void setLogLevel(int level);
// Receives every line that passes the level and the rate limit, instead of stderr, synchronously
// on the logging thread (tests). Empty: back to the asynchronous stderr writer.
using LogSink = std::function<void(int level, const std::string& module, const std::string& text)>;
void setLogSink(LogSink sink);
// Waits (at most 2 s) until every line queued for stderr before the call has been written.
void flushLog();

struct LogStats {
    uint64_t dropped = 0;     // lines lost because the writer's queue was full
    uint64_t suppressed = 0;  // level-5 lines held back by the rate limit
};
LogStats logStats();

// ---- Clock and timers (tests) ----------------------------------------------------------------

// Switches KVL_GetTimeTick to a manual clock starting at `start`; timers then never fire on
// their own, only through advanceClock.
void useManualClock(uint32_t start);
// Advances the manual clock by ms, running every timer that falls due, in time order, on the
// calling thread.
void advanceClock(uint32_t ms);
// Back to the real clock and timer thread.
void useRealClock();

// ---- Lifetime --------------------------------------------------------------------------------

// Stops the host's threads (bus workers, alarm delivery, notifications, timers), dropping queued
// work. Call after the plug-in has been uninitialised.
void shutdown();

}  // namespace korva::host

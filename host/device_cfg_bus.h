// The gateway's device configuration bus: relays a JSON request to a device asynchronously.
#pragma once

#include <cstdint>
#include <string>

// Per-request context of a protocol plug-in's relay. Allocated by the plug-in; owned by the
// host from the moment QX_DeviceCfgBus_ProcessAsyn accepts it until the callback, which
// releases it.
struct DeviceCfgContext {
    int32_t httpHandle;        // CHttpExchange::getHttpHandle() of the request
    int32_t attachmentLength;  // length of attachment
    char* attachment;          // owned extra data, or null
    void* handler;  // non-owning: the handler that started the relay (test for null only)
};

// Completion routine: data/length is the device's answer (JSON text, not terminated; or one of
// the host's binary frames starting with "QXMD"/"QXBD"). Runs on a bus thread.
typedef int (*QX_DeviceCfgCallBack)(const char* data, int length, void* userData);

// Relays the request "method jsonUrl" (jsonUrl holds "?format=json&devIndex=<device>") with the
// JSON body to the device, and returns at once. On acceptance (0) the host calls callback
// exactly once with userData: with the device's answer, or, when the device does not answer
// within timeoutMs, with a device-busy status object
// {"errorCode":536870916,"errorMsg":"deviceBusy","statusCode":2,"statusString":"Device Busy"}.
// userData is the caller's DeviceCfgContext (or null): the host reads its httpHandle to tie the
// relay to its request. Any other result means refused: the callback is never called and
// userData stays with the caller. Results: 1 bad arguments, 9 no such device attached, 10 too
// many relays outstanding. Thread-safe.
int QX_DeviceCfgBus_ProcessAsyn(int method, std::string jsonUrl, const std::string& jsonBody,
                                QX_DeviceCfgCallBack callback, void* userData, int timeoutMs);

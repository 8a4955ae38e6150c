// The gateway's alarm bus: subscriptions to the alarms of a set of devices.
//
// A subscription delivers each alarm of its devices, as JSON text, to its data routine on the
// bus's single delivery thread, once QX_AlarmBus_StartUploadData was called for it.
// Reply strings receive a short JSON status text; they may be ignored. All functions are
// thread-safe and return 0 on success.
#pragma once

#include <string>

// data/length: one alarm document (not terminated). Result ignored by the bus.
typedef int (*QX_AlarmDataCallBack)(const char* data, int length, void* user);

// Creates a subscription for the devices of body
// ({"SubscribeDeviceMgmt":{"DevEventList":[{"Dev":{"devIndex":..}}],...}}) and stores its id.
// flag: 1 (reserved). Fails (non-zero) on a body it cannot read or a null callback.
int QX_AlarmBus_Subscribe(int* subscribeId, std::string* reply, const std::string& body,
                          QX_AlarmDataCallBack callback, void* user, int flag);
// Starts delivery for the subscription.
int QX_AlarmBus_StartUploadData(int subscribeId);
// Adds a device ({"SubscribeDevEvent":{"devIndex":..,"uploadMode":"all"}}) to the subscription.
int QX_AlarmBus_AddDevice(std::string* reply, int subscribeId, const std::string& devIndex,
                          const std::string& body);
// Removes a device from the subscription.
int QX_AlarmBus_DeleteDevice(std::string* reply, int subscribeId, const std::string& devIndex);
// Ends the subscription. When it returns, its data routine is not running (unless called from
// inside it) and is not called again. flag: 1 (reserved).
int QX_AlarmBus_UnSubscribe(std::string* reply, int subscribeId, int flag);
// Non-zero while the bus knows the subscription.
int QX_AlarmBus_CheckIDValid(int subscribeId);

// Small JsonCpp helpers shared by the simulated devices. Every reader checks types first, so
// no JsonCpp exception is raised on unexpected input.
#pragma once

#include <json/json.h>

#include <string>

namespace korva::sim {

// Parses text within the gateway's default JSON limits (korva::host::parseJsonText); false when
// it is not one JSON value. Never throws.
bool parseJson(const std::string& text, Json::Value* out);
// Compact one-line text.
std::string writeJson(const Json::Value& value);
// The member of an object, or null when value is not an object or lacks it.
const Json::Value& member(const Json::Value& value, const char* name);
// Copies every member of `patch` into `target`, merging nested objects.
void mergeInto(Json::Value& target, const Json::Value& patch);

}  // namespace korva::sim

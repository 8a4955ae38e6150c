#include "plugin/pipeline/json_access.h"

#include <json/writer.h>

#include <cstring>
#include <limits>

namespace QXKORVAProtocol {

const Json::Value* findMember(const Json::Value& value, const char* key) {
    if (!value.isObject()) return nullptr;
    return value.find(key, key + std::strlen(key));
}

bool readAsText(const Json::Value& value, std::string* out) {
    if (value.isArray() || value.isObject()) return false;
    *out = value.asString();
    return true;
}

bool readAsInt32(const Json::Value& value, int32_t* out) {
    if (value.isNull()) {
        *out = 0;
    } else if (value.isBool()) {
        *out = value.asBool() ? 1 : 0;
    } else if (value.isInt()) {
        *out = value.asInt();
    } else if (value.type() == Json::realValue) {
        const double real = value.asDouble();
        if (!(real >= std::numeric_limits<int32_t>::min() &&
              real <= std::numeric_limits<int32_t>::max())) {
            return false;
        }
        *out = static_cast<int32_t>(real);
    } else {
        return false;
    }
    return true;
}

bool readAsBool(const Json::Value& value, bool* out) {
    if (value.isNull()) {
        *out = false;
    } else if (value.isBool() || value.isNumeric()) {
        *out = value.asBool();
    } else {
        return false;
    }
    return true;
}

std::string writeJsonBody(const Json::Value& value) {
    return Json::FastWriter().write(value);
}

}  // namespace QXKORVAProtocol

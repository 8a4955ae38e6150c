#include "plugin/pipeline/json_access.h"

#include <cstring>

namespace QXKORVAProtocol {

const Json::Value* findMember(const Json::Value& value, const char* key) {
    if (!value.isObject()) return nullptr;
    return value.find(key, key + std::strlen(key));
}

}  // namespace QXKORVAProtocol

#include "gateway/server/json_error.h"

#include <json/json.h>

#include "gateway/hostlib/json_text.h"

namespace korva::gateway {

std::string jsonError(int status, const std::string& text) {
    Json::Value error(Json::objectValue);
    error["error"] = text;
    error["status"] = status;
    return korva::host::writeCompactJson(error) + "\n";
}

}  // namespace korva::gateway

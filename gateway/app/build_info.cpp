#include "gateway/app/build_info.h"

#include <json/version.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <boost/version.hpp>
#include <filesystem>
#include <pugixml.hpp>
#include <sstream>

#include "gateway/server/plugin_loader.h"

#ifndef KORVA_VERSION
#error "KORVA_VERSION must name the project version"
#endif
#ifndef KORVA_PLUGIN_DIR_FROM_BIN
#error "KORVA_PLUGIN_DIR_FROM_BIN must name the installed plug-in folder, relative to bin"
#endif

namespace korva::gateway {

namespace {

constexpr const char* kPluginFile = "libkorva_protocol.so";

std::string pugixmlVersion() {
    // 1130 is 1.13.
    return std::to_string(PUGIXML_VERSION / 1000) + "." +
           std::to_string(PUGIXML_VERSION % 1000 / 10);
}

std::string boostVersion() {
    std::string version = BOOST_LIB_VERSION;  // "1_74"
    std::replace(version.begin(), version.end(), '_', '.');
    return version;
}

}  // namespace

std::string defaultPluginPath() {
    namespace fs = std::filesystem;
    const fs::path bin = executableDirectory();
    const fs::path nextTo = bin / kPluginFile;
    const fs::path installed = (bin / KORVA_PLUGIN_DIR_FROM_BIN / kPluginFile).lexically_normal();
    std::error_code ec;
    if (!fs::exists(nextTo, ec) && fs::exists(installed, ec)) return installed.string();
    return nextTo.string();
}

std::string versionText(const std::string& pluginPath) {
    std::ostringstream text;
    text << "korva-gateway " << KORVA_VERSION << "\n"
         << "plug-in: " << pluginPath << "\n"
         << "OpenSSL: " << OpenSSL_version(OPENSSL_VERSION) << "\n"
         << "Boost: " << boostVersion() << "\n"
         << "JsonCpp: " << JSONCPP_VERSION_STRING << "\n"
         << "pugixml: " << pugixmlVersion() << "\n";
    return text.str();
}

}  // namespace korva::gateway

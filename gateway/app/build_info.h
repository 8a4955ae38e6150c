// What korva-gateway was built from and where it finds its plug-in: the text of --version and
// the plug-in used when neither --plugin nor the configuration names one.
#pragma once

#include <string>

namespace korva::gateway {

// The plug-in loaded when none is named: libkorva_protocol.so next to the executable (a build
// tree) when it exists, else the one of the installed layout (the library folder beside the
// executable's bin folder, e.g. /usr/lib/korva-gateway for /usr/bin), else the one next to the
// executable again, so that the load error names the first place looked at.
std::string defaultPluginPath();

// Several lines: the gateway's version, `pluginPath`, and the versions of OpenSSL (the one
// loaded), Boost, JsonCpp and pugixml (the ones built against).
std::string versionText(const std::string& pluginPath);

}  // namespace korva::gateway

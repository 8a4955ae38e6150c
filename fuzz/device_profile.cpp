// Device profile files: the input is the text of a profile. It is parsed as the configuration
// loader does (sim::parseJson, then sim::parseProfile).
// Invariant: a profile is accepted (with non-negative times) or refused with a ProfileError; any
// other exception escapes and is reported as a crash.
#include "gateway/sim/device_profile.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "gateway/sim/json_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Json::Value root;
    if (!korva::sim::parseJson(std::string(reinterpret_cast<const char*>(data), size), &root)) {
        return 0;
    }
    try {
        const korva::sim::DeviceProfile profile = korva::sim::parseProfile(root);
        korva::fuzz::require(profile.latencyMs >= 0 && profile.alarmIntervalMs >= 0,
                             "negative time in an accepted profile");
    } catch (const korva::sim::ProfileError&) {
        // Refused with the field named (an empty member name gives an empty field name: see
        // crashes/README.md).
    }
    return 0;
}

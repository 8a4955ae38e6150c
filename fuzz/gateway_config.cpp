// Configuration files: the input is the text of a gateway configuration. parseConfig reads it
// with relative paths taken from the examples folder (so the seed's profiles are found).
// Invariant: a configuration is accepted or refused with a ConfigError naming the source;
// any other exception escapes and is reported as a crash.
#include "gateway/app/gateway_config.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const korva::gateway::GatewayConfig config =
            korva::gateway::parseConfig(text, "fuzz.json", KORVA_FUZZ_EXAMPLES_DIR);
        korva::fuzz::require(config.logLevel >= 1 && config.logLevel <= 5,
                             "log level outside its range");
        korva::fuzz::require(
            config.limits.maxHeaderBytes >= 1024 && config.limits.maxBodyBytes >= 1024,
            "limit below its minimum");
    } catch (const korva::gateway::ConfigError& error) {
        korva::fuzz::require(std::string(error.what()).find("fuzz.json") != std::string::npos ||
                                 std::string(error.what()).find(KORVA_FUZZ_EXAMPLES_DIR) == 0,
                             "configuration error without its source", error.what());
    }
    return 0;
}

// The host library's clocks, shared by the runtime tick, the timers, nonce ages and lock-outs.
// Both follow the manual clock of host_clock.h when it is in use.
#pragma once

#include <cstdint>

namespace korva::host::detail {

// The runtime tick (KVL_GetTimeTick): milliseconds, wrapping at 2^32.
uint32_t tickNow();

// Milliseconds on a 64-bit clock that never goes backwards, also across switches between the real
// and the manual clock. Nonce ages and lock-out times are measured on it.
uint64_t monotonicMs();

}  // namespace korva::host::detail

// The manual clock of the runtime tick and the KVL timers (tests).
// Gateway side of the host library (not visible to a plug-in). Thread-safe unless noted.
#pragma once

#include <cstdint>

namespace korva::host {

// Switches KVL_GetTimeTick to a manual clock starting at `start`; timers then never fire on
// their own, only through advanceClock.
void useManualClock(uint32_t start);
// Advances the manual clock by ms, running every timer that falls due, in time order, on the
// calling thread.
void advanceClock(uint32_t ms);
// Back to the real clock and timer thread.
void useRealClock();

}  // namespace korva::host

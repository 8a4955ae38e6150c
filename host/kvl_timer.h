// Periodic timers that run on the runtime's timer thread.
//
// Thread safety: both functions may be called from any thread, also from a timer routine.
#pragma once

#include <cstdint>

// A timer routine receives its timer id and the user pointer given to KVL_SetTimer.
// Its result is ignored.
typedef int (*KVL_TimerRoutine)(uint32_t timerId, void* user);

// Starts a periodic timer: routine(id, user) runs every periodMs milliseconds (first run one
// period after the call). The id is stored in *timerId before the timer can first run, so the
// routine may compare its argument with *timerId. flags: 0 (reserved).
// Runs of one timer never overlap; different timers may run concurrently.
// Returns 0 on success, -1 on failure (KVL_GetLastError tells why).
int KVL_SetTimer(KVL_TimerRoutine routine, void* user, uint32_t periodMs, uint32_t* timerId,
                 int flags);

// Stops a timer. When called from another thread than the timer's own routine, it returns
// only after any run in progress has ended; the routine never runs again.
// Returns 0, or -1 for an unknown id.
int KVL_KillTimer(uint32_t timerId);

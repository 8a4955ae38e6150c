// Flexible thread pool: up to maxThreads workers, started on demand and ended after idling.
//
// Thread safety: Create, Work and Destroy may be called from any thread; Work concurrently with
// Work on the same pool, but not once Destroy has begun (Destroy frees the pool). The routine
// runs on the pool's workers, several items at once when maxThreads > 1.
#pragma once

#include <cstdint>

typedef void* KVL_HThreadPoolFlex;

// The work routine receives each queued item; its result is ignored. The item belongs to the
// routine from the moment it starts.
typedef int (*KVL_ThreadPoolWorkRoutine)(void* item);

// Creates a pool. idleTimeoutMs: how long a worker waits for work before it ends.
// stackSize: bytes of stack per worker (0 = system default). Returns null on failure.
KVL_HThreadPoolFlex KVL_ThreadPoolFlex_Create(uint32_t maxThreads, uint32_t idleTimeoutMs,
                                              KVL_ThreadPoolWorkRoutine routine,
                                              uint32_t stackSize);

// Queues one item; a worker will call the routine with it. Returns 0 when queued, -1 when the
// pool refused it (null pool, pool being destroyed, no thread could be started and none is
// running); a refused item stays with the caller.
int KVL_ThreadPoolFlex_Work(KVL_HThreadPoolFlex pool, void* item);

// Stops accepting work, lets the workers run every item already queued, joins them and frees
// the pool. Must not be called from a worker of the same pool. Returns 0, -1 for a null pool.
int KVL_ThreadPoolFlex_Destroy(KVL_HThreadPoolFlex pool);

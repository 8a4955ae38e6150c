#include "gateway/server/write_job.h"

namespace korva::gateway {

bool WriteJob::tryStart() {
    State expected = State::kQueued;
    return m_state.compare_exchange_strong(expected, State::kWriting, std::memory_order_acq_rel);
}

}  // namespace korva::gateway

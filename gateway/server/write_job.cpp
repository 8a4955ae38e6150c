#include "gateway/server/write_job.h"

namespace korva::gateway {

WriteJob::AnswerWrite::AnswerWrite(HttpAnswer answer, Extent part)
    : message(std::move(answer)), serializer(message), extent(part) {
    // Split, the serializer stops once the head is out; is_header_done() then says so.
    serializer.split(part == Extent::kHeadOnly);
}

WriteJob::WriteJob(HttpAnswer answer, After after, Extent extent) : m_after(after) {
    m_answer.emplace(std::move(answer), extent);
}

bool WriteJob::complete() {
    if (!m_answer) return written() >= m_bytes.size();
    return m_answer->extent == Extent::kHeadOnly ? m_answer->serializer.is_header_done()
                                                 : m_answer->serializer.is_done();
}

bool WriteJob::tryStart() {
    State expected = State::kQueued;
    return m_state.compare_exchange_strong(expected, State::kWriting, std::memory_order_acq_rel);
}

}  // namespace korva::gateway

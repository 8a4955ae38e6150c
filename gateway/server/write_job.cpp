#include "gateway/server/write_job.h"

#include <boost/beast/core/buffers_range.hpp>

namespace korva::gateway {

WriteJob::AnswerWrite::AnswerWrite(HttpAnswer answer, Extent part)
    : message(std::move(answer)), serializer(message), extent(part) {
    // glibc's allocator consolidates its free lists before each request of 1008 bytes or more.
    static_assert(sizeof(AnswerWrite) < 1008, "one answer write must stay a small allocation");
    // Split, the serializer stops once the head is out; is_header_done() then says so.
    serializer.split(part == Extent::kHeadOnly);
}

WriteJob::WriteJob(HttpAnswer answer, After after, Extent extent)
    : m_answer(std::make_unique<AnswerWrite>(std::move(answer), extent)), m_after(after) {}

std::span<const boost::asio::const_buffer> WriteJob::nextBuffers() {
    if (!m_answer) {
        m_rawRest = boost::asio::buffer(m_bytes) + written();
        return {&m_rawRest, 1};
    }
    AnswerWrite& answer = *m_answer;
    answer.pieceCount = 0;
    boost::beast::error_code ec;
    answer.serializer.next(ec, [&answer](boost::beast::error_code&, const auto& buffers) {
        for (const boost::asio::const_buffer buffer : boost::beast::buffers_range_ref(buffers)) {
            if (answer.pieceCount == answer.pieces.size()) break;
            if (buffer.size() != 0) answer.pieces[answer.pieceCount++] = buffer;
        }
    });
    if (ec) return {};
    return {answer.pieces.data(), answer.pieceCount};
}

void WriteJob::consume(std::size_t n) {
    m_written.fetch_add(n, std::memory_order_acq_rel);
    if (m_answer) m_answer->serializer.consume(n);
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

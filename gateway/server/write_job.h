// One write queued for a connection: an answer or a stream head (a Beast message, written by
// Beast's serializer) or raw bytes (a stream part, or the empty marker that ends a stream).
// Created by any thread, written on the connection's strand. A stream part names the request it
// belongs to, so that the connection can drop it when that request is no longer its stream.
// Thread safety: the state and the written count are atomic; the message, the bytes and what
// the accessors report never change. The serializer (and so complete()) is the writer's: strand
// only.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "gateway/server/http_answer.h"

namespace korva::gateway {

class WriteJob {
  public:
    enum class State { kQueued, kWriting, kDone, kFailed };
    // What happens on the connection once the job is written: nothing, the next request is read,
    // the connection closes after draining what the peer still sends, or (at the end of a
    // stream, whose peer only ever reads) it closes at once.
    enum class After { kNothing, kEndRequest, kClose, kEndStream };
    // How much of an answer goes out: all of it, or its head alone (the answer to HEAD, whose
    // Content-Length is that of the body it keeps; the head of a stream).
    enum class Extent { kWhole, kHeadOnly };

    // An answer; its body is moved in and written from where it lies.
    WriteJob(HttpAnswer answer, After after, Extent extent);
    // Raw bytes. serial: the request serial of a stream part (0 otherwise).
    WriteJob(std::string bytes, After after, bool streamPart, std::uint64_t serial = 0)
        : m_bytes(std::move(bytes)), m_after(after), m_streamPart(streamPart), m_serial(serial) {}
    WriteJob(const WriteJob&) = delete;
    WriteJob& operator=(const WriteJob&) = delete;

    bool isAnswer() const { return m_answer.has_value(); }
    // The answer's status code (the access log's), 0 for raw bytes.
    int status() const { return m_answer ? static_cast<int>(m_answer->message.result_int()) : 0; }
    // The raw bytes ("" for an answer).
    const std::string& bytes() const { return m_bytes; }
    After after() const { return m_after; }
    bool streamPart() const { return m_streamPart; }
    std::uint64_t serial() const { return m_serial; }
    std::size_t written() const { return m_written.load(std::memory_order_acquire); }
    void addWritten(std::size_t n) { m_written.fetch_add(n, std::memory_order_acq_rel); }
    State state() const { return m_state.load(std::memory_order_acquire); }

    // Strand only. The answer's serializer (an answer job only): each write goes on from where
    // the last ended.
    AnswerSerializer& serializer() { return m_answer->serializer; }
    // Strand only. Everything this job writes has been written.
    bool complete();

    // Queued -> writing; false when the job was started or ended already.
    bool tryStart();
    // Final state: done or failed.
    void finish(State state) { m_state.store(state, std::memory_order_release); }

  private:
    // The serializer refers to the message beside it: neither moves once made.
    struct AnswerWrite {
        AnswerWrite(HttpAnswer answer, Extent part);
        HttpAnswer message;
        AnswerSerializer serializer;
        const Extent extent;
    };

    std::optional<AnswerWrite> m_answer;
    const std::string m_bytes;
    const After m_after;
    const bool m_streamPart = false;
    const std::uint64_t m_serial = 0;
    std::atomic<std::size_t> m_written{0};
    std::atomic<State> m_state{State::kQueued};
};

}  // namespace korva::gateway

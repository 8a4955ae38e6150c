// One write queued for a connection: an answer or a stream head (a Beast message, written by
// Beast's serializer) or raw bytes (a stream part, or the empty marker that ends a stream).
// Either way the writer takes nextBuffers(), writes some of them and reports consume(n).
// Created by any thread, written on the connection's strand. A stream part names the request it
// belongs to, so that the connection can drop it when that request is no longer its stream.
// Thread safety: the state and the written count are atomic; the message, the bytes and what
// the accessors report never change. nextBuffers, consume and complete are the writer's: strand
// only.
#pragma once

#include <array>
#include <atomic>
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/serializer.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
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

    bool isAnswer() const { return m_answer != nullptr; }
    // The answer's status code (the access log's), 0 for raw bytes.
    int status() const { return m_answer ? static_cast<int>(m_answer->message.result_int()) : 0; }
    // The raw bytes ("" for an answer).
    const std::string& bytes() const { return m_bytes; }
    After after() const { return m_after; }
    bool streamPart() const { return m_streamPart; }
    std::uint64_t serial() const { return m_serial; }
    // Bytes written so far (head and body of an answer).
    std::size_t written() const { return m_written.load(std::memory_order_acquire); }
    State state() const { return m_state.load(std::memory_order_acquire); }

    // Strand only, while !complete(). What the next write sends: the rest of the raw bytes, or
    // the serializer's next piece (head pieces and body, in place) as a plain buffer list of at
    // most kMaxBuffers entries (the rest follows in later writes). Valid until consume(). Empty
    // only when the serializer fails.
    std::span<const boost::asio::const_buffer> nextBuffers();
    // Strand only. The first `n` bytes of nextBuffers() were written.
    void consume(std::size_t n);
    // Strand only. Everything this job writes has been written.
    bool complete();

    // Queued -> writing; false when the job was started or ended already.
    bool tryStart();
    // Final state: done or failed.
    void finish(State state) { m_state.store(state, std::memory_order_release); }

  private:
    using Serializer = boost::beast::http::response_serializer<boost::beast::http::string_body>;
    // Buffers handed to one write: the status line (3), a header each, the blank line, the body.
    static constexpr std::size_t kMaxBuffers = 16;

    // The serializer refers to the message beside it: neither moves once made.
    struct AnswerWrite {
        AnswerWrite(HttpAnswer answer, Extent part);
        HttpAnswer message;
        Serializer serializer;
        const Extent extent;
        // The serializer's current piece as plain buffers: Beast's own buffer sequence is a
        // nest of views that costs more to walk on every write than to list once.
        std::array<boost::asio::const_buffer, kMaxBuffers> pieces;
        std::size_t pieceCount = 0;
    };

    // Apart from the job, so that raw jobs (stream parts) stay small.
    const std::unique_ptr<AnswerWrite> m_answer;
    const std::string m_bytes;
    boost::asio::const_buffer m_rawRest;  // the unwritten rest of m_bytes
    const After m_after;
    const bool m_streamPart = false;
    const std::uint64_t m_serial = 0;
    std::atomic<std::size_t> m_written{0};
    std::atomic<State> m_state{State::kQueued};
};

}  // namespace korva::gateway

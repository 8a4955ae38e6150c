#include "gateway/sim/sim_scheduler.h"

#include <boost/asio/steady_timer.hpp>
#include <memory>

namespace korva::sim {

SimScheduler::SimScheduler() : m_work(m_io.get_executor()), m_thread([this] { m_io.run(); }) {}

SimScheduler::~SimScheduler() {
    stop();
}

void SimScheduler::after(std::chrono::milliseconds delay, std::function<void()> fn) {
    auto timer = std::make_shared<boost::asio::steady_timer>(m_io, delay);
    timer->async_wait([timer, fn = std::move(fn)](const boost::system::error_code& ec) {
        if (!ec) fn();
    });
}

void SimScheduler::every(std::chrono::milliseconds period, std::function<void()> fn) {
    schedule(period, std::move(fn));
}

void SimScheduler::schedule(std::chrono::milliseconds period, std::function<void()> fn) {
    auto timer = std::make_shared<boost::asio::steady_timer>(m_io, period);
    timer->async_wait(
        [this, timer, period, fn = std::move(fn)](const boost::system::error_code& ec) {
            if (ec) return;
            fn();
            schedule(period, fn);
        });
}

void SimScheduler::stop() {
    if (!m_thread.joinable()) return;
    m_work.reset();
    m_io.stop();
    m_thread.join();
}

}  // namespace korva::sim

#include "gateway/hostlib/deadline_timer.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <thread>
#include <unordered_map>

namespace korva::host::detail {

namespace asio = boost::asio;

struct DeadlineTimer::Run {
    Run() : thread([this] { io.run(); }) {}

    // Declared first, destroyed last: the timers below belong to it.
    asio::io_context io;
    asio::executor_work_guard<asio::io_context::executor_type> work{io.get_executor()};
    std::mutex mutex;  // guards timers
    // A routine is due while its timer is here; whoever takes it out (the expiry or cancel)
    // decides whether it runs.
    std::unordered_map<uint64_t, std::shared_ptr<asio::steady_timer>> timers;
    std::thread thread;  // started last, once the members above exist
};

DeadlineTimer::~DeadlineTimer() {
    stop();
}

uint64_t DeadlineTimer::schedule(Clock::time_point when, std::function<void()> routine) {
    std::shared_ptr<Run> run;
    uint64_t id;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_run) m_run = std::make_shared<Run>();
        run = m_run;
        id = m_nextId++;
    }
    auto timer = std::make_shared<asio::steady_timer>(run->io, when);
    // Under the lock until the wait is set up, so that neither the expiry nor cancel touches
    // the timer before. The io_context outlives its handlers (stop joins its thread before the
    // Run goes).
    std::lock_guard<std::mutex> lock(run->mutex);
    run->timers.emplace(id, timer);
    Run* const owner = run.get();
    timer->async_wait([owner, id, routine = std::move(routine)](const boost::system::error_code&) {
        std::shared_ptr<asio::steady_timer> mine;
        {
            std::lock_guard<std::mutex> guard(owner->mutex);
            auto found = owner->timers.find(id);
            if (found == owner->timers.end()) return;  // cancelled
            mine = std::move(found->second);
            owner->timers.erase(found);
        }
        routine();
    });
    return id;
}

bool DeadlineTimer::cancel(uint64_t id) {
    std::shared_ptr<Run> run;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        run = m_run;
    }
    if (!run) return false;
    std::shared_ptr<asio::steady_timer> timer;
    {
        std::lock_guard<std::mutex> lock(run->mutex);
        auto found = run->timers.find(id);
        if (found == run->timers.end()) return false;
        timer = std::move(found->second);
        run->timers.erase(found);
    }
    // Wakes the wait now, so that its routine (and what it holds) is released at once; the
    // timer is only touched on its own thread.
    asio::post(run->io, [timer] { timer->cancel(); });
    return true;
}

void DeadlineTimer::stop() {
    std::shared_ptr<Run> run;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        run.swap(m_run);
    }
    if (!run) return;
    run->io.stop();
    if (run->thread.get_id() == std::this_thread::get_id()) {
        // Called from a routine: another thread joins this one once the routine returns.
        std::thread([run] { run->thread.join(); }).detach();
        return;
    }
    run->thread.join();
}

}  // namespace korva::host::detail

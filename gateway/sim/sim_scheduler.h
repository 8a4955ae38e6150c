// One thread that runs delayed and periodic work for the simulated devices (answer latency,
// simulated alarms). Thread-safe. stop() drops what has not run yet.
#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <thread>

namespace korva::sim {

class SimScheduler {
  public:
    SimScheduler();
    ~SimScheduler();
    SimScheduler(const SimScheduler&) = delete;
    SimScheduler& operator=(const SimScheduler&) = delete;

    // Runs fn once after delay.
    void after(std::chrono::milliseconds delay, std::function<void()> fn);
    // Runs fn every period, first after one period, until stop().
    void every(std::chrono::milliseconds period, std::function<void()> fn);
    // Stops the thread; pending work is dropped. Idempotent.
    void stop();

  private:
    void schedule(std::chrono::milliseconds period, std::function<void()> fn);

    boost::asio::io_context m_io;
    std::optional<boost::asio::executor_work_guard<boost::asio::io_context::executor_type>> m_work;
    std::thread m_thread;
};

}  // namespace korva::sim

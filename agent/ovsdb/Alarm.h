// Something to be done after a while, on the event loop. Includes Asio: for sources only.
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <system_error>
#include <utility>

namespace Agent::Ovsdb {

class Alarm {
 public:
  explicit Alarm(asio::io_context& io) : timer_(io) {}
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

  // In place of what was set before. Never calls back from within, nor once it is destroyed.
  template <class Action>
  void set(double seconds, Action action) {
    cancel();
    set_ = std::make_shared<char>();
    timer_.expires_after(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(seconds)));
    timer_.async_wait([set = std::weak_ptr(set_),
                       action = std::move(action)](const std::error_code& error) mutable {
      if (!error && !set.expired()) action();
    });
  }

  void cancel() {
    set_.reset();
    timer_.cancel();
  }

 private:
  asio::steady_timer timer_;
  // That it is still set: a timer that has expired can no longer be canceled.
  std::shared_ptr<char> set_;
};

}  // namespace Agent::Ovsdb

// The turns of a live agent: the clocks that are due fire, then a piece of work is done, and what
// else waits at the sockets comes before the next turn. With nothing to do and no clock armed, it
// sleeps.
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <functional>

#include "agent/metrics/Histogram.h"

namespace Agent {

class EventLoop {
 public:
  // Does a piece of work of some milliseconds at most; true if there is more.
  using Work = std::function<bool()>;

  // Drives the activity facility that is current. `io` must outlive the loop, which must outlive
  // its run(). `turns` is told the seconds that each turn takes.
  EventLoop(asio::io_context& io, Work work, Metrics::Histogram& turns);

  // Something may have come to do: there will be a turn.
  void wake();

 private:
  void turn();
  void sleep();

  asio::io_context& io_;
  const Work work_;
  Metrics::Histogram& turns_;
  asio::steady_timer timer_;
  bool isAwake_ = false;
};

}  // namespace Agent

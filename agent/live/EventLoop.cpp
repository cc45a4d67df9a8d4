#include "agent/live/EventLoop.h"

#include <asio/post.hpp>
#include <chrono>
#include <utility>

#include "framework/Moru/ActivityFacility.h"

namespace Agent {

EventLoop::EventLoop(asio::io_context& io, Work work, Metrics::Histogram& turns)
    : io_(io), work_(std::move(work)), turns_(turns), timer_(io) {}

void EventLoop::wake() {
  if (isAwake_) return;
  isAwake_ = true;
  asio::post(io_, [this] { turn(); });
}

void EventLoop::turn() {
  isAwake_ = false;
  const auto& facility = Moru::ActivityFacility::current();
  const double begun = facility->now();
  facility->fireDue();
  const bool isMore = work_();
  turns_.observe(facility->now() - begun);
  if (isMore)
    wake();
  else
    sleep();
}

void EventLoop::sleep() {
  const auto& facility = Moru::ActivityFacility::current();
  const double due = facility->nextDue();
  timer_.cancel();
  if (due == Moru::Clock::never) return;
  const std::chrono::duration<double> left(due - facility->now());
  timer_.expires_after(std::chrono::ceil<std::chrono::microseconds>(left));
  timer_.async_wait([this](const std::error_code& error) {
    if (!error) wake();
  });
}

}  // namespace Agent

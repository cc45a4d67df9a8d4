#include "agent/kernel/LinkRequests.h"

#include <algorithm>

namespace Agent::Kernel {

namespace {

constexpr std::size_t mostPerAsk = 3;
constexpr double firstWait = 0.5;
constexpr double longestWait = 30;

// So many times within the window something is asked for at once, then by the interval.
constexpr std::size_t timesAtOnce = 5;
constexpr double window = 10;
constexpr double interval = 1;

}  // namespace

void LinkRequests::begin(const Vxlan::VniExt& vni, double now) {
  now_ = now;
  current_ = outcomes_.insert_or_assign(vni, Outcome{}).first;
}

void LinkRequests::problem(const std::string& place, const std::string& value,
                           const std::string& why) {
  current_->second.problems.try_emplace(place, Problem{value, why});
}

bool LinkRequests::ask(Ask ask, const std::function<void(Netlink::Batch&)>& build) {
  Outcome& outcome = current_->second;
  if (const auto until = slowedUntil(ask.reason)) {
    outcome.again = std::min(outcome.again.value_or(*until), *until);
    return false;
  }
  if (batch_.size() + mostPerAsk > Netlink::Batch::mostRequests || batch_.isFull()) send();
  build(batch_);
  askOf_.resize(batch_.size(), asked_.size());
  asked_.push_back({current_->first, std::move(ask)});
  return true;
}

std::optional<double> LinkRequests::slowedUntil(const std::string& reason) {
  std::vector<double>& times = times_[reason];
  std::erase_if(times, [this](double time) { return time <= now_ - window; });
  if (times.size() >= timesAtOnce && now_ < times.back() + interval) return times.back() + interval;
  if (times.size() >= timesAtOnce) times.erase(times.begin());
  times.push_back(now_);
  return std::nullopt;
}

void LinkRequests::send() {
  requests_.send(batch_, [this](std::size_t place, const Netlink::Refusal& refusal) {
    auto& first = asked_[askOf_[place]].refusal;
    if (!first) first = refusal;
  });
  const std::vector<Sent> sent = std::exchange(asked_, {});
  askOf_.clear();
  for (const auto& [vni, ask, refusal] : sent) {
    if (!refusal) {
      if (ask.done) ask.done();
      continue;
    }
    Outcome& outcome = outcomes_.at(vni);
    outcome.isRefused = true;
    outcome.problems.try_emplace(ask.place, Problem{ask.value, refusal->text});
  }
}

void LinkRequests::finish(double now) {
  send();
  for (const auto& [vni, outcome] : outcomes_) conclude(vni, outcome, now);
  outcomes_.clear();
  current_ = outcomes_.end();
  if (now - cleared_ < window) return;
  cleared_ = now;
  std::erase_if(times_, [now](const auto& entry) { return entry.second.back() <= now - window; });
}

void LinkRequests::conclude(const Vxlan::VniExt& vni, const Outcome& outcome, double now) {
  std::set<std::string>& raised = raised_[vni];
  for (const std::string& place : raised)
    if (!outcome.problems.contains(place)) problems_.cure(place);
  raised.clear();
  for (const auto& [place, problem] : outcome.problems) {
    problems_.raise(place, problem.value, problem.why);
    raised.insert(place);
  }
  if (raised.empty()) raised_.erase(vni);

  const auto before = retries_.find(vni);
  Retry retry;
  if (outcome.isRefused) {
    const double last = before == retries_.end() ? 0 : before->second.wait;
    retry.wait = last == 0 ? firstWait : std::min(2 * last, longestWait);
    retry.at = now + retry.wait;
  }
  if (outcome.again && (!outcome.isRefused || *outcome.again < retry.at)) retry.at = *outcome.again;
  retryAt(vni, retry);
}

// A retry that is not to be, at 0, is forgotten.
void LinkRequests::retryAt(const Vxlan::VniExt& vni, const Retry& retry) {
  const auto before = retries_.find(vni);
  if (before != retries_.end()) byTime_.erase({before->second.at, vni});
  if (retry.at == 0) {
    retries_.erase(vni);
    return;
  }
  retries_[vni] = retry;
  byTime_.emplace(retry.at, vni);
}

// How long the last wait was is kept: it is doubled if the next try is refused, too.
std::set<Vxlan::VniExt> LinkRequests::takeDue(double now) {
  std::set<Vxlan::VniExt> result;
  while (!byTime_.empty() && byTime_.begin()->first <= now) {
    result.insert(byTime_.begin()->second);
    byTime_.erase(byTime_.begin());
  }
  return result;
}

std::optional<double> LinkRequests::due() const {
  if (byTime_.empty()) return std::nullopt;
  return byTime_.begin()->first;
}

}  // namespace Agent::Kernel

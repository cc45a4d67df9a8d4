#include "agent/trace/MessageFilter.h"

#include <utility>

#include "agent/base/Text.h"
#include "agent/trace/Subjects.h"

namespace Agent {

MessageFilter::MessageFilter(const MessageFilterOptions& options)
    : options_(options), grep_(options.grep, RE2::Quiet) {}

std::string MessageFilter::begin(std::int64_t lastMessage) {
  if (!grep_.ok())
    return "--grep: the regular expression '" + printable(options_.grep) +
           "' is not valid: " + printable(grep_.error());
  if (options_.since) since_ = options_.since->nanoseconds(lastMessage);
  if (options_.until) until_ = options_.until->nanoseconds(lastMessage);
  if (since_ && until_ && *since_ > *until_)
    return "--until: " + utcText(*until_) + " is before --since: " + utcText(*since_);
  return {};
}

// What costs least first.
bool MessageFilter::matches(const Ringlog::Message& message) const {
  return message.level <= options_.mostLevel && (!since_ || message.time >= *since_) &&
         (!until_ || message.time <= *until_) &&
         (options_.grep.empty() || RE2::PartialMatch(message.text, grep_)) &&
         (!options_.mac || tellsOfMac(message, *options_.mac)) &&
         (!options_.vlan || tellsOfVlan(message, *options_.vlan)) &&
         (!options_.vni || tellsOfVni(message, *options_.vni));
}

void ContextWindow::take(const RingMessage& next, bool isMatch) {
  if (isMatch) {
    for (; !before_.empty(); before_.pop_front())
      show(before_.front().message, before_.front().ring, false);
    after_ = around_;
    show(*next.message, next.ring, true);
  } else if (after_ > 0) {
    --after_;
    show(*next.message, next.ring, false);
  } else {
    before_.push_back({*next.message, next.ring});
    if (before_.size() <= around_) return;
    before_.pop_front();
    hasLeftOut_ = true;
  }
}

void ContextWindow::show(const Ringlog::Message& message, std::size_t ring, bool isMatch) {
  show_({message, ring, isMatch, hasShown_ && hasLeftOut_});
  hasShown_ = true;
  hasLeftOut_ = false;
}

}  // namespace Agent

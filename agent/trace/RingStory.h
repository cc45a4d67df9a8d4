// The story of a host as trace rings tell it: by what the client traces when it takes a host in,
// marks it, deletes it, and copies it into the RIB. A ring forgets, and so the story may lack its
// beginning; it says so.
//
//   const RingStory story = ringStoryOf(rings, mac);
//   print(out, {mac, story.remarks, storyOf(story.events), story.verdict, story.now}, ringTimes());
#pragma once

#include <string>
#include <vector>

#include "agent/story/Event.h"
#include "agent/story/StoryView.h"
#include "agent/story/Verdict.h"
#include "framework/Ringlog/Reader.h"
#include "model/Vorn/EthAddr.h"

namespace Agent {

struct RingStory {
  // Of the MAC and what happens around it, in the order of time; `at` counts seconds since the
  // beginning of 1970. A ring tells neither VTIs nor flood sets, and of the controller only what
  // the client has looked at.
  std::vector<Event> events{};
  // Where the MAC is by the last of them, as far as the rings tell: one for each VLAN, at least
  // one.
  std::vector<Finding> verdict{};
  // What the story may lack, and how the last process ended: sentences.
  std::vector<std::string> remarks{};
  double now = 0;  // of the last message
};

// The rings are those of one agent, of one process after the other. None at all tells nothing.
RingStory ringStoryOf(const std::vector<Ringlog::Contents>& rings, const Vorn::EthAddr& mac);

// Times in UTC, to the microsecond.
StoryTimes ringTimes();

}  // namespace Agent

// What has happened to each MAC, in bounded memory: where there is too much of it, those go of
// which there is least to tell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "agent/story/Event.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "model/Vorn/EthAddr.h"

namespace Agent {

// How much there is to tell of a MAC that stays where it is, or only misses a word of the
// controller, or does otherwise.
enum class Interest : std::uint8_t { routine, restart, change };

struct KeptStory {
  std::vector<Event> events{};  // the oldest first
  std::uint64_t left = 0;       // events before these that are not kept
  bool isWhole = true;          // else there may be more before these that are not kept
};

class KeptStories {
 public:
  // At most that many events are kept, of all MACs together, and of one.
  explicit KeptStories(std::size_t most = 48 * 1024, std::size_t mostOfOne = 64)
      : most_(most), mostOfOne_(mostOfOne) {}

  void add(const Event& event, Interest interest);

  // Whether the story of each MAC is there, whole but for what is counted.
  bool areAll() const { return !hasForgotten_; }

  // By MAC, ascending.
  std::vector<std::pair<Vorn::EthAddr, KeptStory>> all() const;

 private:
  struct Kept {
    KeptStory story{};
    Interest interest = Interest::routine;
  };

  Kept* keptOf(const Vorn::EthAddr& mac);
  void makeRoom();
  void forgetBeginning(KeptStory& story);

  const std::size_t most_;
  const std::size_t mostOfOne_;
  Moru::HashMap2018<Vorn::EthAddr, Kept> kept_;
  std::pair<Vorn::EthAddr, Kept*> last_{};  // for events of one MAC come together; null: none
  std::size_t events_ = 0;
  bool hasForgotten_ = false;
  bool isFull_ = false;  // of what is of interest
};

}  // namespace Agent

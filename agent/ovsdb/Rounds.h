// Which member of a cluster is tried next, and after how long.
#pragma once

#include <cstddef>

namespace Agent::Ovsdb {

class Rounds {
 public:
  // Seconds, for the wait after a first failed round and for the longest.
  Rounds(std::size_t members, double shortest, double longest)
      : members_(members), shortest_(shortest), longest_(longest), wait_(shortest) {}

  std::size_t member() const { return member_; }

  // The member's connection has failed, or ended after `inSync` seconds in sync; the next one's
  // turn has come. Returns the seconds to wait before: none, but after a round in which all have
  // failed, and twice as many after each. Whoever stayed in sync for longer than the wait begins
  // anew; one that is lost as soon as it is in sync does not, as it would be asked for the whole
  // state again and again.
  double failed(double inSync);

 private:
  std::size_t members_;
  double shortest_;
  double longest_;
  double wait_;
  std::size_t member_ = 0;
  std::size_t failed_ = 0;  // in this round
};

}  // namespace Agent::Ovsdb

// What is wrong with what the agent is given, for as long as it is: each is told once, can be
// listed while it lasts, and goes when it is cured.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <utility>

namespace Agent {

struct Problem {
  std::chrono::system_clock::time_point since;
  std::string value;  // as it came; it may hold anything
  std::string why;    // what was expected
};

class Problems {
 public:
  // Where each problem is told, once.
  using Teller = std::function<void(const std::string& what, const Problem& problem)>;

  explicit Problems(Teller teller) : teller_(std::move(teller)) {}

  // `what` is the place: a row and its column, say. Raising what is there with the same value and
  // reason does nothing; with others, it takes their place and is told again.
  void raise(const std::string& what, const std::string& value, const std::string& why);
  void cure(const std::string& what) { all_.erase(what); }

  // By their places.
  const std::map<std::string, Problem>& all() const { return all_; }

 private:
  Teller teller_;
  std::map<std::string, Problem> all_;
};

}  // namespace Agent

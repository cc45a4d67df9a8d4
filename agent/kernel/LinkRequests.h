// The requests that bring the links of the VNIs into order, and what becomes of them: what is
// refused is a problem, and is to be tried again, ever later; what is asked for over and over
// because somebody undoes it is slowed down.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/base/Problems.h"
#include "agent/netlink/Batch.h"
#include "agent/netlink/Requests.h"
#include "model/Vxlan/VniExt.h"

namespace Agent::Kernel {

class LinkRequests {
 public:
  struct Ask {
    std::string place{};  // of the problem, should it be refused
    std::string value{};
    std::string reason{};  // why it is asked for: the same text is the same thing
    std::function<void()> done{};
  };

  LinkRequests(Netlink::Requests& requests, Problems& problems)
      : requests_(requests), problems_(problems) {}

  // Begins what is wrong with a VNI, and asked for it, anew: what is not named again is cured.
  void begin(const Vxlan::VniExt& vni, double now);
  void problem(const std::string& place, const std::string& value, const std::string& why);

  // `build` adds three requests at most to the batch. They are sent here where the batch is full.
  // Returns whether it is asked for: not if it has been too often, and has to wait.
  bool ask(Ask ask, const std::function<void(Netlink::Batch&)>& build);

  // Sends what is left, and tells of all VNIs that were begun. Throws std::system_error.
  void finish(double now);

  // The VNIs that are to be looked at again by now; and when the next one is.
  std::set<Vxlan::VniExt> takeDue(double now);
  std::optional<double> due() const;

 private:
  struct Problem {
    std::string value;
    std::string why;
  };
  struct Outcome {
    std::map<std::string, Problem> problems{};
    bool isRefused = false;
    std::optional<double> again{};  // when what was slowed down is
  };
  struct Sent {
    Vxlan::VniExt vni;
    Ask ask;
    std::optional<Netlink::Refusal> refusal{};
  };
  struct Retry {
    double wait = 0;  // seconds; 0: nothing was refused
    double at = 0;
  };
  using Outcomes = std::map<Vxlan::VniExt, Outcome>;

  std::optional<double> slowedUntil(const std::string& reason);
  void send();
  void conclude(const Vxlan::VniExt& vni, const Outcome& outcome, double now);
  void retryAt(const Vxlan::VniExt& vni, const Retry& retry);

  Netlink::Requests& requests_;
  Problems& problems_;
  Netlink::Batch batch_;
  std::vector<Sent> asked_;
  std::vector<std::size_t> askOf_;  // by the place of a request in the batch, the place in asked_
  Outcomes outcomes_;
  Outcomes::iterator current_ = outcomes_.end();
  double now_ = 0;
  std::map<Vxlan::VniExt, std::set<std::string>> raised_;
  std::map<Vxlan::VniExt, Retry> retries_;
  std::set<std::pair<double, Vxlan::VniExt>> byTime_;
  std::map<std::string, std::vector<double>> times_;  // of asking, by reason: the last few
  double cleared_ = 0;                                // when times_ was last cleared of old ones
};

}  // namespace Agent::Kernel

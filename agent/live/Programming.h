// The kernel's part in the running agent: gives the data plane its time and its news, tells it when
// all is calm, and the gate what the kernel holds from before.
#pragma once

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "agent/base/Attachments.h"
#include "agent/base/Problems.h"
#include "agent/gate/WithdrawalGate.h"
#include "agent/kernel/DataPlane.h"
#include "agent/live/Log.h"
#include "agent/live/Stories.h"
#include "agent/store/EmbeddedClient.h"

namespace Agent {

struct ProgrammingOptions {
  bool managesLinks = true;  // else those that are there are used
  std::string owner{};       // the name of our switch, which is in the mark of what is ours
};

class Programming {
 public:
  // `wake` asks for a turn. All must outlive it. Throws as Kernel::DataPlane does.
  Programming(const ProgrammingOptions& options, asio::io_context& io,
              const EmbeddedClient& embedded, WithdrawalGate& gate, Stories& stories,
              Problems& problems, Log& log, std::function<void()> wake);

  void attachmentsAre(const Attachments& attachments) { plane_.attachmentsAre(attachments); }

  // Works for about as long. `isSettled`: all that the database has said is in the store. Returns
  // whether there is more to do.
  bool work(double seconds, bool isSettled);

  const Kernel::DataPlane& plane() const { return plane_; }
  nlohmann::ordered_json status() const;

 private:
  bool isCalm() const;
  void listen();

  const ProgrammingOptions options_;
  const EmbeddedClient& embedded_;
  const WithdrawalGate& gate_;
  const std::function<void()> wake_;
  Kernel::DataPlane plane_;
  asio::posix::stream_descriptor news_;
  bool isListening_ = false;
};

}  // namespace Agent

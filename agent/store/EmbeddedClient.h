// A state store, and the client that runs over it, if one does: what feeds the store need not know
// how a client is built.
#pragma once

#include <optional>

#include "Vxlan/VxlanControllerClientSm.h"
#include "agent/store/Inputs.h"
#include "agent/store/StateStore.h"
#include "framework/Moru/Ptr.h"

namespace Agent {

class EmbeddedClient {
 public:
  // `maxProcessTime` is what each client gets, in seconds; its own default if it is not given.
  explicit EmbeddedClient(std::optional<double> maxProcessTime) : maxProcessTime_(maxProcessTime) {}

  StateStore& store() { return store_; }
  const StateStore& store() const { return store_; }

  // The inputs that clients are handed as null, from the next one on.
  void absentIs(const InputSet& absent) { absent_ = absent; }
  bool isAbsent(Input input) const { return absent_.test(bitOf(input)); }

  // What a client is handed, or has been.
  Vxlan::ClientInputs inputs() const { return store_.inputs(absent_); }

  // Where building a client throws, none runs.
  void start();
  void stop() { client_ = nullptr; }

  // Null if none runs.
  const Moru::Ptr<Vxlan::VxlanControllerClientSm>& client() const { return client_; }

 private:
  const std::optional<double> maxProcessTime_;
  StateStore store_;
  InputSet absent_;
  Moru::Ptr<Vxlan::VxlanControllerClientSm> client_;
};

}  // namespace Agent

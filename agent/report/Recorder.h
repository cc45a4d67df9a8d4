// Records what a report tells, while a client runs.
#pragma once

#include "agent/report/Collector.h"
#include "agent/report/DataText.h"
#include "agent/store/EmbeddedClient.h"
#include "agent/story/Witness.h"

namespace Agent {

class Recorder {
 public:
  explicit Recorder(double from = 0) : collector_(from) {}
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  // What a witness of all MACs tells.
  void take(const Event& event) { collector_.take(event); }
  void take(const Batch& batch) { collector_.take(batch); }

  // To be called at the end of each turn of the event loop; costs little where nothing has changed.
  void turnEnded(const Witness::Moment& moment, const EmbeddedClient& embedded);

  // `head` without its VNIs.
  Pieces data(ReportHead head, const EmbeddedClient& embedded) const;

 private:
  Collector collector_;
};

}  // namespace Agent

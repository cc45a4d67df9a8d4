#include "agent/live/AgentMetrics.h"

#include <chrono>
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include "framework/Moru/ActivityFacility.h"
#include "framework/Ringlog/Ring.h"

namespace Agent {

namespace {

using Metrics::Exposition;
using Metrics::Type;

double unixSeconds(std::chrono::system_clock::time_point time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

double now() { return Moru::ActivityFacility::current()->now(); }

// Of a time of the activity facility.
double unixSeconds(double at) { return unixSeconds(std::chrono::system_clock::now()) + at - now(); }

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  constexpr double microsecond = 1e-6;
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + microsecond * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double residentBytes() {
  std::ifstream statistics("/proc/self/statm");
  double all = 0;
  double resident = 0;
  statistics >> all >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// Dense around what a batch may take, if nobody has said otherwise: 10 ms.
std::vector<double> batchBounds() {
  return {0.001, 0.002, 0.005, 0.0075, 0.01, 0.0105, 0.011, 0.012, 0.015, 0.02, 0.05, 0.1};
}

template <class Number>
double number(Number value) {
  return static_cast<double>(value);
}

}  // namespace

Activity::Activity()
    : turns({0.0001, 0.00025, 0.0005, 0.001, 0.0025, 0.005, 0.0075, 0.01, 0.015, 0.025, 0.05, 0.1,
             0.25, 0.5}),
      unicastBatches(batchBounds()),
      bumBatches(batchBounds()) {}

void Activity::add(const Batch& batch) {
  (batch.kind == Batch::Kind::unicast ? unicastBatches : bumBatches).observe(batch.seconds);
}

AgentMetrics::AgentMetrics(const Sources& sources)
    : sources_(sources),
      started_(unixSeconds(std::chrono::system_clock::now())),
      deletions_(Moru::create<HostDeletions>(sources.embedded.store().l2RibZepInput,
                                             sources.witness.batches())) {}

std::string AgentMetrics::text(Metrics::Dialect dialect) const {
  Exposition out(dialect);
  tellProcess(out);
  tellDatabase(out);
  tellConvergence(out);
  tellRib(out);
  tellDeletions(out);
  tellKernel(out);
  tellFiles(out);
  return std::move(out).text();
}

void AgentMetrics::tellProcess(Exposition& out) const {
  out.info("vxlan_agent_build", "The program.", {{"version", sources_.version}});
  out.info(
      "vxlan_agent_switch", "The switch that it is, and what it programs.",
      {{"switch", sources_.switchName}, {"data_plane", sources_.programming ? "linux" : "none"}});
  out.gauge("process_start_time_seconds", "When it has started, since the beginning of 1970.",
            started_);
  out.counter("process_cpu_seconds", "Time of the processor that it has had.", cpuSeconds());
  out.gauge("process_resident_memory_bytes", "Memory that it occupies.", residentBytes());
  out.begin(Type::histogram, "vxlan_agent_event_loop_turn_duration_seconds",
            "How long turns of the event loop have taken.");
  out.sample(sources_.activity.turns);
  out.gauge("vxlan_agent_problems", "What is wrong with what it is given.",
            number(sources_.problems.all().size()));
}

void AgentMetrics::tellDatabase(Exposition& out) const {
  const Ovsdb::Session& session = sources_.session;
  out.info("vxlan_agent_database", "The database that it follows, or tries next.",
           {{"remote", session.remote().text()}});
  out.begin(Type::gauge, "vxlan_agent_database_state", "1 for the state that the session is in.");
  for (const auto state : Ovsdb::sessionStates)
    out.sample(session.state() == state ? 1 : 0, {{"state", nameOf(state)}});
  out.gauge("vxlan_agent_database_state_since_timestamp_seconds",
            "When the session came into that state, since the beginning of 1970.",
            unixSeconds(session.since()));
  out.counter("vxlan_agent_database_connections", "Connections made to a server.",
              number(session.connections()));
  out.counter("vxlan_agent_database_messages", "Messages with rows.",
              number(sources_.activity.messages));
  out.counter("vxlan_agent_changes_applied", "Changes given to the client.",
              number(sources_.activity.changes));
}

void AgentMetrics::tellConvergence(Exposition& out) const {
  const WithdrawalGate& gate = sources_.gate;
  out.gauge("vxlan_agent_converging", "1 while it converges.", gate.converging() ? 1 : 0);
  out.gauge("vxlan_agent_converging_duration_seconds",
            "For how long it has been converging; 0 if it is not.",
            gate.converging() ? now() - gate.convergingSince() : 0);
  const auto hold = gate.hold();
  out.gauge("vxlan_agent_hold", "1 during a hold.", hold ? 1 : 0);
  out.begin(Type::gauge, "vxlan_agent_hold_started_timestamp_seconds",
            "When the hold began, since the beginning of 1970.");
  if (hold) out.sample(unixSeconds(hold->since));
  out.gauge("vxlan_agent_hold_missing_hosts", "Hosts that have not come back in the hold.",
            hold ? number(hold->waiting) : 0);
  out.counter("vxlan_agent_holds", "Holds that have begun.", number(gate.holds()));
}

void AgentMetrics::tellRib(Exposition& out) const {
  const StateStore& store = sources_.embedded.store();
  out.gauge("vxlan_agent_vnis", "VNIs.", number(store.controllerStatusBaseDir->entityPtr().size()));
  out.gauge("vxlan_agent_hosts", "Hosts in the layer-2 RIB.",
            number(store.l2RibZepInput->host().size()));
  out.gauge("vxlan_agent_hosts_marked", "Of these, those marked for deletion.",
            number(sources_.embedded.client()->hostTable()->markedForDelCount()));
  out.gauge("vxlan_agent_hosts_withdrawal_waiting", "Hosts whose withdrawal waits.",
            number(sources_.gate.waiting()));
  out.gauge("vxlan_agent_flood_sets", "Flood sets in the layer-2 RIB.",
            number(sources_.witness.floodSets()));
  out.gauge("vxlan_agent_flood_destinations", "Destinations of all flood sets together.",
            number(sources_.witness.floodDests()));
}

void AgentMetrics::tellDeletions(Exposition& out) const {
  const auto& convergence = sources_.embedded.store().zepConvergenceStatus;
  out.begin(Type::gauge, "vxlan_agent_deferred_deletion_in_progress",
            "1 while a deferred deletion is under way.");
  out.sample(convergence->unicastDeferredDeletionInProgress() ? 1 : 0, {{"kind", "unicast"}});
  out.sample(convergence->bumDeferredDeletionInProgress() ? 1 : 0, {{"kind", "bum"}});
  out.begin(Type::counter, "vxlan_agent_hosts_deleted", "Hosts deleted from the layer-2 RIB.");
  out.sample(number(deletions_->atOnce()), {{"cause", "at once"}});
  out.sample(number(deletions_->deferred()), {{"cause", "deferred"}});
  out.begin(Type::histogram, "vxlan_agent_deletion_batch_duration_seconds",
            "How long batches of deferred deletions have taken.");
  out.sample(sources_.activity.unicastBatches, {{"kind", "unicast"}});
  out.sample(sources_.activity.bumBatches, {{"kind", "bum"}});
  out.gauge("vxlan_agent_deletion_batch_budget_seconds",
            "After how long a batch of a deferred deletion yields.",
            sources_.embedded.client()->maxProcessTime());
}

void AgentMetrics::tellKernel(Exposition& out) const {
  if (!sources_.programming) return;
  const auto status = sources_.programming->plane().status();
  const auto& hosts = status.hosts;
  out.begin(Type::gauge, "vxlan_agent_kernel_hosts",
            "Hosts wanted in the kernel, by what has become of them.");
  out.sample(number(hosts.programmed), {{"state", "programmed"}});
  out.sample(number(hosts.waiting()), {{"state", "waiting"}});
  out.sample(number(hosts.refused), {{"state", "refused"}});
  out.gauge("vxlan_agent_kernel_foreign_entries", "Entries of others in its devices.",
            number(hosts.foreign));
  out.gauge("vxlan_agent_kernel_requests_waiting",
            "Entries, of hosts and of flood sets, that are to be changed.", number(status.waiting));
  out.gauge("vxlan_agent_kernel_devices", "VNIs that have a vxlan device.", number(status.devices));
  out.gauge("vxlan_agent_kernel_nexthop_groups", "Groups of nexthops.", number(status.groups));
  out.counter("vxlan_agent_kernel_put_back",
              "Entries and groups that others had changed, and that were put back.",
              number(status.putBack));
  out.counter("vxlan_agent_kernel_read_again",
              "How often all was read again, for notifications were lost.",
              number(status.readAgain));
}

void AgentMetrics::tellFiles(Exposition& out) const {
  if (const Recording& recording = sources_.recording; !recording.file().empty()) {
    out.gauge("vxlan_agent_recording_bytes", "Size of the recording.", number(recording.size()));
    out.gauge("vxlan_agent_recording_written", "1 while the recording can be written.",
              recording.isWritten() ? 1 : 0);
  }
  if (const Ringlog::Ring* const ring = Ringlog::ring()) {
    out.counter("vxlan_agent_trace_ring_written_bytes", "Written to the trace ring.",
                number(ring->bytesWritten()));
    out.gauge("vxlan_agent_trace_ring_file_bytes", "Size of the trace ring file.",
              number(ring->fileSize()));
  }
}

}  // namespace Agent

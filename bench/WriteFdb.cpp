// The yardstick of kernel-bench: writes FDB entries in a bare loop, or reads all there are, and
// does nothing else. Prints how long that took, in seconds.
//
//   write-fdb FILE     the entries of FILE, a line each: DEVICE MAC VTEP
//   write-fdb          reads

#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <linux/rtnetlink.h>
#include <map>
#include <net/if.h>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/netlink/Dump.h"
#include "agent/netlink/Fdb.h"
#include "agent/netlink/Requests.h"

namespace {

using namespace Agent;

std::vector<Netlink::FdbEntry> readEntries(const char* path) {
  std::ifstream file(path);
  std::vector<Netlink::FdbEntry> entries;
  std::map<std::string, int> indexes;
  for (std::string device, mac, vtep; file >> device >> mac >> vtep;) {
    int& index = indexes[device];
    if (index == 0) index = static_cast<int>(if_nametoindex(device.c_str()));
    Netlink::FdbEntry& entry = entries.emplace_back();
    entry.index = index;
    entry.mac = Vorn::EthAddr::parse(mac).value();
    entry.dst = Vorn::IpAddr::parse(vtep).value();
  }
  return entries;
}

void write(const std::vector<Netlink::FdbEntry>& entries) {
  Netlink::Requests requests;
  Netlink::Batch batch;
  const auto refuse = [](std::size_t, const Netlink::Refusal& refusal) {
    throw std::runtime_error(refusal.text);
  };
  for (const Netlink::FdbEntry& entry : entries) {
    Netlink::putFdb(batch, RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, entry, {true, true});
    if (batch.isFull()) requests.send(batch, refuse);
  }
  requests.send(batch, refuse);
}

void read() {
  Netlink::Dump dump;
  std::size_t number = 0;
  dump.readAll(
      RTM_GETNEIGH, Netlink::allFdbEntries, [&number] { number = 0; },
      [&number](const nlmsghdr&) { ++number; });
}

}  // namespace

int main(int count, char** arguments) {
  try {
    std::vector<Netlink::FdbEntry> entries;
    if (count > 1) entries = readEntries(arguments[1]);
    const auto begin = std::chrono::steady_clock::now();
    if (count > 1)
      write(entries);
    else
      read();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    std::printf("%.6f\n", time.count());
    return 0;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "write-fdb: %s\n", exception.what());
    return 1;
  }
}

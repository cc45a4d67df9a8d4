// A network namespace of the test's own, with nothing in it.
#pragma once

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/types.h>
#include <unistd.h>

namespace AgentTest {

inline void writeTo(const std::string& path, const std::string& text) {
  const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (file < 0) return;
  [[maybe_unused]] const auto written = write(file, text.data(), text.size());
  close(file);
}

// Goes into an empty one, which ends with the process or with the next. Returns why that is not
// permitted, or nothing.
inline std::string enterNamespace() {
  if (unshare(CLONE_NEWNET) == 0) return "";
  const std::string user = std::to_string(getuid());
  const std::string group = std::to_string(getgid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
    return std::string("no network namespace of our own: ") + std::strerror(errno);
  writeTo("/proc/self/setgroups", "deny");
  writeTo("/proc/self/uid_map", "0 " + user + " 1");
  writeTo("/proc/self/gid_map", "0 " + group + " 1");
  return "";
}

// What a command prints; it must succeed.
inline std::string output(const std::string& command) {
  std::string text;
  FILE* const pipe = popen(command.c_str(), "r");
  std::array<char, 4096> buffer{};
  while (const std::size_t length = fread(buffer.data(), 1, buffer.size(), pipe))
    text.append(buffer.data(), length);
  EXPECT_EQ(pclose(pipe), 0) << command;
  return text;
}

class KernelTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::string why = enterNamespace();
    if (why.empty()) return;
    if (std::getenv("VXLAN_NAMESPACES")) FAIL() << why;
    GTEST_SKIP() << why;
  }

  static void ip(const std::string& words) { output("ip " + words); }
  static void bridge(const std::string& words) { output("bridge " + words); }
};

}  // namespace AgentTest

// A real ovsdb-server with the hardware_vtep schema, in a directory of the test's own. It ends with
// the test, however that ends.
#pragma once

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

// A child process, ended with its object.
class Process {
 public:
  explicit Process(const std::vector<std::string>& command) : id_(fork()) {
    if (id_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) dup2(nowhere, stream);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command)
      arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process() {
    signal(SIGKILL);
    wait();
  }

  void signal(int number) const {
    if (id_ > 0) kill(id_, number);
  }

  // Its exit status, -1 for a signal.
  int wait() {
    int status = 0;
    if (id_ <= 0 || waitpid(std::exchange(id_, -1), &status, 0) < 0) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  static void run(const std::vector<std::string>& command) {
    EXPECT_EQ(Process(command).wait(), 0) << command.front() << ' ' << command.back();
  }

 private:
  pid_t id_;
};

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "vxlan-agent-test-XXXXXX";
    path_ = mkdtemp(name.data());
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }

  std::string file(const std::string& name) const { return path_ + '/' + name; }

 private:
  std::string path_;
};

class OvsdbServer {
 public:
  static constexpr const char* schema = "/usr/share/openvswitch/vtep.ovsschema";

  // Its files are below that name; the database is made by `ovsdb-tool MAKE FILE SCHEMA`.
  explicit OvsdbServer(std::string name) : name_(std::move(name)) {}

  void makeAlone(const std::string& from = schema) const {
    std::filesystem::remove(database());
    Process::run({"ovsdb-tool", "create", database(), from});
  }
  // A cluster of one.
  void makeCluster() const {
    Process::run(
        {"ovsdb-tool", "-voff", "create-cluster", database(), schema, "unix:" + name_ + ".raft"});
  }

  // Does not wait until it listens: sessions do.
  void start(std::vector<std::string> more = {}) {
    std::vector<std::string> command = {"ovsdb-server", "-vconsole:off",
                                        "--remote=punix:" + name_ + ".sock",
                                        "--unixctl=" + name_ + ".ctl"};
    command.insert(command.end(), more.begin(), more.end());
    command.push_back(database());
    process_.emplace(command);
  }
  void stop() { process_.reset(); }
  void freeze() const { process_->signal(SIGSTOP); }

  std::string remote() const { return "unix:" + name_ + ".sock"; }

  // Operations, as JSON, in one transaction.
  void transact(const std::string& operations) const {
    Process::run({"ovsdb-client", "-voff", "--timeout=20", "transact", remote(),
                  R"(["hardware_vtep",)" + operations + ']'});
  }
  // A command to the server itself.
  void tell(const std::vector<std::string>& words) const {
    std::vector<std::string> command = {"ovs-appctl", "--timeout=20", "-t", name_ + ".ctl"};
    command.insert(command.end(), words.begin(), words.end());
    Process::run(command);
  }

 private:
  std::string database() const { return name_ + ".db"; }

  std::string name_;
  std::optional<Process> process_;
};

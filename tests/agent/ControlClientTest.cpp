// What is shown of an agent's answer, and how that ends: asked over a socket, as it is.
#include <asio/io_context.hpp>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>

#include "agent/live/ControlClient.h"
#include "agent/live/ControlServer.h"

namespace {

using Agent::ExitStatus;

TEST(ControlClientTest, TheDoctorFailsOverADifferenceWithoutAReason) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("control-client-test-" + std::to_string(getpid()) + ".sock");
  std::string answer;
  std::string asked;
  asio::io_context io;
  Agent::ControlServer server(io, path, [&](const std::string& question) -> Agent::Answer {
    asked = question;
    return [&](std::string& out) { return out = answer, false; };
  });
  std::thread agent([&io] { io.run(); });
  const auto ask = [&](Agent::Format format) {
    std::ostringstream out;
    const ExitStatus status = Agent::ask({path, "doctor", {.format = format}}, out);
    return std::to_string(status) + ' ' + out.str();
  };
  const std::string explained =
      R"({"vni":5001,"mac":"M","database":null,"client":"all A B","kernel":"A","reason":"held"})"
      "\n";
  const std::string unexplained =
      R"({"vni":9,"mac":"N","database":"A","client":"A","kernel":null,"reason":null})"
      "\n";
  EXPECT_EQ(ask(Agent::Format::table), "0 nothing differs\n");
  EXPECT_EQ(asked, "{\"question\":\"doctor\"}\n");
  EXPECT_EQ(ask(Agent::Format::json), "0 ");
  answer = explained;
  EXPECT_EQ(ask(Agent::Format::table),
            "0    vni  mac  database  client   kernel  reason\n"
            "  5001  M    -         all A B  A       held\n");
  answer = unexplained + explained;
  EXPECT_EQ(ask(Agent::Format::json), "1 " + answer);
  EXPECT_TRUE(ask(Agent::Format::table).starts_with("1 "));
  io.stop();
  agent.join();
}

}  // namespace

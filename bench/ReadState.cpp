// The yardstick of live-bench: asks an OVSDB server for what the agent asks it for, and reads and
// parses what comes, without making anything of it. Prints a line a message: the time at which it
// was parsed, by the system's monotonic clock in seconds, and its length in bytes.
//
//   read-state SOCKET NUMBER    ends after so many messages

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <simdjson.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "agent/ovsdb/Frames.h"
#include "agent/ovsdb/Schema.h"

namespace {

using namespace Agent::Ovsdb;

std::string request() {
  std::string tables;
  for (const TableSchema& table : monitoredTables) {
    std::string columns;
    for (const ColumnSchema& column : table.columns)
      columns += (columns.empty() ? "\"" : ",\"") + std::string(column.name) + '"';
    tables += (tables.empty() ? "\"" : ",\"") + std::string(table.name) + R"(":[{"columns":[)" +
              columns + "]}]";
  }
  return R"({"id":"state","method":"monitor_cond_since","params":[")" + std::string(databaseName) +
         R"(","state",{)" + tables + R"(},"00000000-0000-0000-0000-000000000000"]})";
}

int connectTo(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int server = socket(AF_UNIX, SOCK_STREAM, 0);
  if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw std::runtime_error("cannot connect to " + path);
  return server;
}

void read(int server, int messages) {
  FrameReader frames;
  simdjson::dom::parser parser;
  std::vector<char> buffer(std::size_t{256} << 10);
  while (messages > 0) {
    const ssize_t length = ::read(server, buffer.data(), buffer.size());
    if (length <= 0) throw std::runtime_error("the server has hung up");
    std::string_view bytes(buffer.data(), static_cast<std::size_t>(length));
    while (const auto frame = frames.next(bytes)) {
      simdjson::dom::object message;
      if (parser.parse(*frame).get(message) != simdjson::SUCCESS)
        throw std::runtime_error("that is no JSON object");
      const auto time = std::chrono::steady_clock::now().time_since_epoch();
      std::printf("%.6f %zu\n", std::chrono::duration<double>(time).count(), frame->size());
      std::fflush(stdout);
      --messages;
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  try {
    const int server = connectTo(arguments[1]);
    const std::string text = request();
    if (write(server, text.data(), text.size()) != static_cast<ssize_t>(text.size())) return 1;
    read(server, std::atoi(arguments[2]));
    close(server);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "read-state: %s\n", error.what());
    return 1;
  }
}

// The trace ring, as a switch has it on, in a directory of its own.
#pragma once

#include <filesystem>
#include <string>
#include <unistd.h>

#include "framework/Ringlog/Ring.h"

namespace Bench {

// For as long as the process runs.
inline void ringOn() {
  static const struct Ring {
    Ring() {
      directory = std::filesystem::temp_directory_path() /
                  ("vxlan-client-bench-" + std::to_string(getpid()));
      std::filesystem::create_directories(directory);
      Ringlog::directoryIs(directory);
    }
    ~Ring() {
      Ringlog::close();
      std::filesystem::remove_all(directory);
    }
    std::filesystem::path directory;
  } ring;
}

}  // namespace Bench

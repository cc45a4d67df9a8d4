#include "agent/live/Recording.h"

#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "agent/journal/JournalWriter.h"
#include "framework/Moru/ActivityFacility.h"

namespace Agent {

namespace {

// FILE.2 becomes FILE.3, and so on down to FILE itself. Where that cannot be done, the file that is
// in the way is written over.
void makeRoom(const std::string& file) {
  const auto name = [&file](int age) { return age == 0 ? file : file + '.' + std::to_string(age); };
  std::error_code ignored;
  if (std::filesystem::file_size(file, ignored) == 0 || ignored) return;
  for (int age = Recording::kept; age > 0; --age)
    std::filesystem::rename(name(age - 1), name(age), ignored);
}

}  // namespace

Recording::Recording(RecordingOptions options, WriteState writeState, Problems& problems)
    : options_(std::move(options)), writeState_(std::move(writeState)), problems_(problems) {
  if (!options_.file.empty()) begin();
}

double Recording::time() const { return Moru::ActivityFacility::current()->now() - begun_; }

void Recording::begin() {
  makeRoom(options_.file);
  constexpr int mode = 0644;
  Descriptor file(open(options_.file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
  if (file.number() < 0) failWithErrno("cannot write the recording " + options_.file);
  file_ = std::move(file);
  begun_ = Moru::ActivityFacility::current()->now();
  size_ = 0;
  writeState();
}

void Recording::writeState() {
  constexpr std::size_t block = std::size_t{1} << 16;
  std::string lines;
  writeState_([&](const Action& action) {
    lines += lineText(0, action);
    if (lines.size() < block) return;
    append(lines);
    lines.clear();
  });
  append(lines);
  stateSize_ = size_;
}

void Recording::write(const Action& action) {
  if (isWritten()) attempt([&] { append(lineText(time(), action)); });
}

template <class Work>
void Recording::attempt(Work work) {
  try {
    work();
  } catch (const std::system_error& error) {
    problems_.raise("recording", options_.file, error.what());
    file_ = Descriptor();
  }
}

void Recording::append(std::string_view text) {
  writeAll(file_.number(), text, "cannot write the recording " + options_.file);
  size_ += text.size();
}

void Recording::rotateIfFull() {
  // A state that is as large as a file may be must not be written again and again.
  if (!isWritten() || options_.largest == 0 || size_ < options_.largest + stateSize_) return;
  attempt([this] { begin(); });
}

}  // namespace Agent

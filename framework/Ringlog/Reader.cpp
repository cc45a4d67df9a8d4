#include "framework/Ringlog/Reader.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iomanip>
#include <optional>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "framework/Ringlog/Format.h"
#include "framework/Ringlog/Site.h"

namespace Ringlog {

namespace {

using Bytes = std::span<const std::byte>;

// A file of nonsense may be of any size, and ask for any amount of text.
constexpr std::size_t mostRead = std::size_t{64} << 20;
constexpr std::size_t mostText = std::size_t{256} << 20;

template <class T>
std::optional<T> at(Bytes file, std::size_t offset) {
  if (offset > file.size() || file.size() - offset < sizeof(T)) return std::nullopt;
  T value;
  std::memcpy(&value, file.data() + offset, sizeof value);
  return value;
}

std::string sized(std::string_view what, std::uint64_t is, std::string_view expected) {
  return std::string(what) + " is " + std::to_string(is) + ", expected " + std::string(expected);
}

std::string atMost(std::uint64_t most) { return "at most " + std::to_string(most); }

// One pass over a file.
class Pass {
 public:
  Pass(Bytes file, Bytes before, Bytes after)
      : file_(file), before_(at<Format::Header>(before, 0)), after_(at<Format::Header>(after, 0)) {}

  Contents run() && {
    if (!readHeader()) return std::move(contents_);
    readSites();
    for (unsigned level = 0; level < header_.levels; ++level) readLevel(level);
    leaveOutUnsettled();
    std::stable_sort(contents_.messages.begin(), contents_.messages.end(),
                     [](const Message& left, const Message& right) { return right.isAfter(left); });
    count();
    return std::move(contents_);
  }

 private:
  void problem(std::string text) {
    constexpr std::size_t most = 100;
    if (contents_.problems.size() < most) contents_.problems.push_back(std::move(text));
    if (contents_.problems.size() == most - 1)
      contents_.problems.emplace_back("there are more problems than these");
  }

  bool readHeader() {
    const auto header = at<Format::Header>(file_, 0);
    if (!header) {
      problem(sized("the file's size", file_.size(),
                    "a header of " + std::to_string(Format::headerSize) + " bytes"));
      return false;
    }
    header_ = *header;
    if (header_.magic != Format::magic) {
      problem("this is no trace ring, or of another version: it does not begin with " +
              std::string(Format::magic.begin(), Format::magic.end()));
      return false;
    }
    if (header_.byteOrder != Format::byteOrder) {
      problem("the file was written by a machine of another byte order");
      return false;
    }
    if (header_.levels > mostLevels) {
      problem(sized("the number of levels", header_.levels, atMost(mostLevels)));
      return false;
    }
    contents_.process = header_.process;
    contents_.opened = header_.anchor[0].counter;
    contents_.openedAt = header_.anchor[0].realtime;
    contents_.writer = writerOf(after_.value_or(header_).state);
    contents_.droppedMessages = header_.droppedSites;
    return true;
  }

  void readSites() {
    std::uint64_t offset = header_.sitesOffset;
    if (offset > file_.size()) {
      problem(sized("the offset of the site table", offset, atMost(file_.size())));
      return;
    }
    std::uint64_t left = header_.sitesSize;
    if (left > file_.size() - offset) {
      problem(sized("the size of the site table", left, atMost(file_.size() - offset)));
      left = file_.size() - offset;
    }
    while (left > 0) {
      const auto size = at<Format::SiteSize>(file_, offset);
      if (left < sizeof(Format::SiteSize) || !size || *size > left - sizeof(Format::SiteSize)) {
        problem("the entry of site " + std::to_string(sites_.size()) + " at offset " +
                std::to_string(offset) + " goes beyond the end of the site table");
        return;
      }
      if (sites_.size() == Format::mostSites) {
        problem("there are more than " + std::to_string(sites_.size()) + " statements");
        return;
      }
      auto site = deserialize(file_.subspan(offset + sizeof *size, *size));
      if (!site)
        problem("the entry of site " + std::to_string(sites_.size()) + " at offset " +
                std::to_string(offset) + " does not describe a statement");
      sites_.push_back(site ? std::make_shared<const Site>(std::move(*site)) : nullptr);
      offset += sizeof *size + *size;
      left -= sizeof *size + *size;
    }
  }

  void readLevel(unsigned number) {
    const Format::Level& level = header_.level[number];
    const std::string name = "level " + std::to_string(number);
    if (level.size == 0) return;
    if (level.size % Format::alignment != 0 || level.offset > file_.size() ||
        level.size > file_.size() - level.offset) {
      problem(name + ": its region of " + std::to_string(level.size) + " bytes at offset " +
              std::to_string(level.offset) + " does not lie within the file of " +
              std::to_string(file_.size()));
      return;
    }
    if (level.tail > level.head || level.head - level.tail > level.size ||
        level.tail % Format::alignment != 0 || level.head % Format::alignment != 0) {
      problem(name + ": tail " + std::to_string(level.tail) + " and head " +
              std::to_string(level.head) + " are no bounds of records in " +
              std::to_string(level.size) + " bytes");
      return;
    }
    // What the process has overwritten while the file was copied is not there any more.
    const std::uint64_t tailNow = after_ ? after_->level[number].tail : 0;
    contents_.levels[number] = {level.size, level.head, std::max(level.tail, tailNow)};
    const std::uint64_t headBefore = before_ ? before_->level[number].head : level.head;
    const Bytes region = file_.subspan(level.offset, level.size);
    for (std::uint64_t position = level.tail; position < level.head;) {
      const std::uint64_t place = position % level.size;
      const auto record = at<RecordStart>(region, place);
      const std::uint64_t size = record ? record->size * Format::alignment : 0;
      if (size == 0 || size > level.head - position || size > level.size - place ||
          (record->site != Format::filler && size < sizeof(Format::Record))) {
        if (position >= tailNow)
          problem(name + ": the record at offset " + std::to_string(level.offset + place) +
                  " says a size of " + std::to_string(size) + ", expected " +
                  std::to_string(sizeof(Format::Record)) + " to " +
                  std::to_string(std::min(level.head - position, level.size - place)));
        return;
      }
      if (record->site != Format::filler && position >= tailNow) {
        const Bytes bytes = region.subspan(place, size);
        if (position < headBefore) settled_ = std::max(settled_, std::optional(orderOf(bytes)));
        readRecord(number, level.offset + place, bytes);
      }
      position += size;
    }
  }

  // The first eight bytes of a record, which are all of a filler.
  struct RecordStart {
    std::uint32_t sequence;
    std::uint16_t site;
    std::uint16_t size;
  };

  // Not the number alone: that wraps around, while a level keeps what it seldom gets.
  using Order = std::pair<std::uint64_t, std::uint32_t>;
  static Order orderOf(Bytes bytes) {
    const auto record = *at<Format::Record>(bytes, 0);
    return {record.counter, record.sequence};
  }

  // The heads of the levels are not read at one time: of two messages of different levels the later
  // may be seen, and the earlier not. Whatever came up to one that was there before is there now.
  void leaveOutUnsettled() {
    if (settled_)
      std::erase_if(contents_.messages, [this](const Message& message) {
        return Order(message.counter, message.sequence) > *settled_;
      });
  }

  // The number of the last message is the lower half of a count, and the last anchor's was not far
  // from it.
  void count() {
    if (contents_.writer == Writer::untold || !contents_.problems.empty()) return;
    std::uint64_t written = header_.written;
    if (!contents_.messages.empty()) {
      const std::uint32_t next = contents_.messages.back().sequence + 1;
      const auto since = static_cast<std::int32_t>(next - static_cast<std::uint32_t>(written));
      written += static_cast<std::uint64_t>(std::int64_t{since});
    }
    if (written >= contents_.messages.size()) contents_.written = written;
  }

  static Writer writerOf(Format::State state) {
    switch (state) {
      case Format::State::open:
        return Writer::open;
      case Format::State::closed:
        return Writer::closed;
      case Format::State::left:
        return Writer::left;
      case Format::State::untold:
        break;
    }
    return Writer::untold;
  }

  void readRecord(unsigned level, std::uint64_t offset, Bytes bytes) {
    if (text_ > mostText) return;
    const auto record = *at<Format::Record>(bytes, 0);
    const bool known = record.site < sites_.size() && sites_[record.site] != nullptr;
    const Bytes values = bytes.subspan(sizeof record);
    const auto text = known ? render(*sites_[record.site], values) : std::nullopt;
    if (!text) {
      problem("level " + std::to_string(level) + ": the record at offset " +
              std::to_string(offset) + " is of site " + std::to_string(record.site) +
              (known ? ", which has other values" : ", which the site table does not have"));
      return;
    }
    text_ += sizeof(Message) + text->size() + values.size();
    if (text_ > mostText)
      problem("its messages take more than " + std::to_string(mostText) +
              " bytes; the rest is not read");
    contents_.messages.push_back({timeOf(record.counter),
                                  record.counter,
                                  record.sequence,
                                  level,
                                  sites_[record.site]->facility,
                                  *text,
                                  sites_[record.site],
                                  {values.begin(), values.end()}});
  }

  // By the rate between the first and the last anchor, from the last: the calendar may have been
  // set since the first.
  std::int64_t timeOf(std::uint64_t counter) const {
    const Format::Anchor& first = header_.anchor[0];
    const Format::Anchor& last = header_.anchor[1 + header_.anchors % 2];
    const double ticks = difference(last.counter, first.counter);
    const double elapsed = static_cast<double>(last.steady) - static_cast<double>(first.steady);
    const double rate = ticks != 0 ? elapsed / ticks : 0;
    const double since = difference(counter, last.counter) * rate;
    // A file of nonsense may tell of any time: what no clock shows is the time of the anchor.
    constexpr double longest = 1e18;
    if (!(std::abs(since) < longest) || std::abs(static_cast<double>(last.realtime)) > 4 * longest)
      return last.realtime;
    return last.realtime + static_cast<std::int64_t>(since);
  }

  static double difference(std::uint64_t left, std::uint64_t right) {
    return left >= right ? static_cast<double>(left - right) : -static_cast<double>(right - left);
  }

  Bytes file_;
  std::optional<Format::Header> before_;
  std::optional<Format::Header> after_;
  Format::Header header_{};
  std::vector<std::shared_ptr<const Site>> sites_;  // null: one that cannot be read
  std::optional<Order> settled_;                    // the newest that had been there before
  std::size_t text_ = 0;
  Contents contents_;
};

struct Descriptor {
  explicit Descriptor(const std::string& path)
      : number(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number >= 0) ::close(number);
  }
  int number;
};

// The first bytes of a file, as many as there are; if it cannot be read errno says why.
std::vector<std::byte> beginningOf(const Descriptor& file, std::size_t size) {
  std::vector<std::byte> bytes(size);
  std::size_t done = 0;
  errno = 0;
  while (done < size) {
    const auto part =
        pread(file.number, bytes.data() + done, size - done, static_cast<off_t>(done));
    if (part <= 0) break;
    done += static_cast<std::size_t>(part);
  }
  bytes.resize(done);
  return bytes;
}

bool isRing(Bytes file) {
  const auto header = at<Format::Header>(file, 0);
  return header && header->magic == Format::magic;
}

// Who writes a file has locked it. The lock that is had where nobody does is given back at once: a
// writer that looks for it in the same instant tries again. A file system without locks tells
// nothing.
Writer lookForWriter(const Descriptor& file) {
  if (flock(file.number, LOCK_SH | LOCK_NB) != 0)
    return errno == EWOULDBLOCK ? Writer::running : Writer::open;
  flock(file.number, LOCK_UN);
  return Writer::gone;
}

}  // namespace

bool Message::isAfter(const Message& other) const {
  return std::pair(counter, sequence) > std::pair(other.counter, other.sequence);
}

std::optional<std::uint64_t> Contents::overwritten() const {
  const auto isWhole = [](const LevelContents& level) { return level.overwritten == 0; };
  if (problems.empty() && std::ranges::all_of(levels, isWhole)) return 0;
  return written ? std::optional(*written - messages.size()) : std::nullopt;
}

std::optional<std::int64_t> Contents::wholeSince(unsigned mostLevel) const {
  std::optional<std::int64_t> since;
  for (unsigned number = 0; number <= mostLevel && number < levels.size(); ++number) {
    if (levels[number].overwritten == 0) continue;
    const auto oldest = std::ranges::find(messages, number, &Message::level);
    // Where nothing is left of a level, all of it may be missing up to the last message.
    const std::int64_t last = messages.empty() ? openedAt : messages.back().time;
    since = std::max(since, std::optional(oldest != messages.end() ? oldest->time : last));
  }
  return since;
}

Contents read(std::span<const std::byte> file, std::span<const std::byte> before,
              std::span<const std::byte> after) {
  return Pass(file, before, after).run();
}

Contents read(const std::string& path) {
  const Descriptor file(path);
  struct stat status {};
  const bool found = file.number >= 0 && fstat(file.number, &status) == 0;
  const auto before = found ? beginningOf(file, Format::headerSize) : std::vector<std::byte>();
  if (!found || errno != 0) {
    Contents contents;
    contents.problems.push_back(path + ": " + std::system_category().message(errno));
    return contents;
  }
  if (!isRing(before)) return read(before);
  // Asked before the header is read that tells whether the file was closed: a writer that ends
  // meanwhile is not taken for one that has crashed.
  const Writer writer = lookForWriter(file);
  const auto size = static_cast<std::uint64_t>(status.st_size);
  const auto bytes = beginningOf(file, std::min<std::uint64_t>(size, mostRead));
  auto contents = read(bytes, before, beginningOf(file, Format::headerSize));
  if (contents.writer == Writer::open) contents.writer = writer;
  if (size > mostRead)
    contents.problems.push_back(sized("the file's size", size, atMost(mostRead)) +
                                "; the rest is not read");
  return contents;
}

std::ostream& operator<<(std::ostream& out, const Message& message) {
  constexpr std::int64_t second = 1'000'000'000;
  std::int64_t part = message.time % second;
  if (part < 0) part += second;
  const std::time_t seconds = (message.time - part) / second;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  const char fill = out.fill('0');
  out << std::put_time(&utc, "%Y-%m-%d %H:%M:%S") << '.' << std::setw(9) << part << ' '
      << message.level << ' ' << message.text;
  out.fill(fill);
  return out;
}

}  // namespace Ringlog

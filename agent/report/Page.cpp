#include "agent/report/Page.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "agent/base/Descriptor.h"
#include "agent/base/InputError.h"
#include "agent/base/Text.h"
#include "agent/report/PageParts.h"

namespace Agent {

namespace {

constexpr std::string_view pageBegin = "<!doctype html>";

// What a policy calls a script or a style by.
std::string digestOf(std::string_view text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha256(), nullptr);
  std::array<unsigned char, 2 * EVP_MAX_MD_SIZE> base64{};
  const int size = EVP_EncodeBlock(base64.data(), digest.data(), static_cast<int>(length));
  return "'sha256-" + std::string(base64.begin(), base64.begin() + size) + '\'';
}

// Nothing is loaded and nothing runs but what is ours: not even what the data might smuggle in.
std::string policy() {
  return "default-src 'none'; base-uri 'none'; form-action 'none'; img-src data:; script-src " +
         digestOf(PageParts::script) + "; style-src " + digestOf(PageParts::style);
}

// Within a script element, no text may look like its end, or like the begin of another.
std::string escaped(std::string_view data) {
  std::string text;
  text.reserve(data.size());
  for (const char each : data) {
    if (each == '<')
      text += "\\u003c";
    else
      text += each;
  }
  return text;
}

// The template, with what is between a pair of @ replaced by the part of that name.
std::string pageText(std::string_view data) {
  const std::pair<std::string_view, std::string> parts[] = {
      {"@policy@", policy()},
      {"@style@", std::string(PageParts::style)},
      {"@data@", escaped(data)},
      {"@script@", std::string(PageParts::script)}};
  std::string text;
  std::string_view rest = PageParts::page;
  for (const auto& [name, part] : parts) {  // in the order of the template
    const std::size_t place = rest.find(name);
    text.append(rest.substr(0, place)).append(part);
    rest.remove_prefix(place + name.size());
  }
  return text.append(rest);
}

// Where a link leads.
std::filesystem::path targetOf(const std::string& file) {
  std::error_code none;
  const auto target = std::filesystem::canonical(file, none);
  return none ? std::filesystem::path(file) : target;
}

bool isPageOrEmpty(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string begin(pageBegin.size(), '\0');
  stream.read(begin.data(), static_cast<std::streamsize>(begin.size()));
  return stream.gcount() == 0 || begin == pageBegin;
}

// A file beside the page's place, until it takes that place.
class Temporary {
 public:
  explicit Temporary(const std::filesystem::path& target)
      : target_(target), name_(target.string() + ".XXXXXX"), descriptor_(mkstemp(name_.data())) {
    if (descriptor_.number() < 0) failWithErrno(trouble_);
  }
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;
  ~Temporary() {
    if (!isInPlace_) unlink(name_.c_str());
  }

  void write(std::string_view text) const { writeAll(descriptor_.number(), text, trouble_); }

  void takePlace() {
    const mode_t mask = umask(0);
    umask(mask);
    constexpr mode_t everybody = 0666;
    if (fchmod(descriptor_.number(), everybody & ~mask) != 0 ||
        rename(name_.c_str(), target_.c_str()) != 0)
      failWithErrno(trouble_);
    isInPlace_ = true;
  }

 private:
  const std::filesystem::path target_;
  const std::string trouble_ = "cannot write " + printable(target_.string());
  std::string name_;
  const Descriptor descriptor_;
  bool isInPlace_ = false;
};

}  // namespace

void checkPagePlace(const std::string& file) {
  const auto target = targetOf(file);
  const auto refuse = [&file](const std::string& what) {
    throw InputError(printable(file) + ' ' + what + ": expected the name of a page to write");
  };
  std::error_code none;
  const auto status = std::filesystem::status(target, none);
  if (std::filesystem::is_directory(status)) refuse("is a directory");
  if (std::filesystem::is_regular_file(status)) {
    if (!isPageOrEmpty(target)) refuse("is there, and is no page");
  } else if (std::filesystem::exists(status)) {
    refuse("is no file");
  }
  const auto directory = target.parent_path();
  if (access(directory.empty() ? "." : directory.c_str(), W_OK | X_OK) != 0)
    failWithErrno("cannot write " + printable(file));
}

void writePage(const std::string& file, std::string_view data) {
  checkPagePlace(file);
  Temporary page(targetOf(file));
  page.write(pageText(data));
  page.takePlace();
}

}  // namespace Agent

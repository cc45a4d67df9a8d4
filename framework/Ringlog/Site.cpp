#include "framework/Ringlog/Site.h"

#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <utility>

namespace Ringlog {

namespace {

// Takes values off the front of some bytes; all that it gives is empty once they did not suffice.
class Bytes {
 public:
  explicit Bytes(std::span<const std::byte> bytes) : bytes_(bytes) {}

  std::span<const std::byte> take(std::size_t size) {
    if (size > bytes_.size()) {
      sufficient_ = false;
      size = 0;
    }
    const auto taken = bytes_.first(size);
    bytes_ = bytes_.subspan(size);
    return taken;
  }

  template <class T>
  T take() {
    T value{};
    if (const auto bytes = take(sizeof value); bytes.size() == sizeof value)
      std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }

  std::string text(std::size_t length) {
    const auto bytes = take(length);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  bool sufficient() const { return sufficient_; }

 private:
  std::span<const std::byte> bytes_;
  bool sufficient_ = true;
};

template <class T>
void append(std::string& to, const T& value) {
  to.append(reinterpret_cast<const char*>(&value), sizeof value);
}

// Texts of the site table have 16 bits for their length.
void appendText(std::string& to, std::string_view text) {
  const auto length = static_cast<std::uint16_t>(std::min<std::size_t>(text.size(), 0xffff));
  append(to, length);
  to.append(text, 0, length);
}

template <class Number, class... Format>
std::string number(Number value, Format... format) {
  std::array<char, 32> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, format...);
  return {digits.data(), end.ptr};
}

std::string hexByte(std::uint8_t byte) {
  return {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 0xf]};
}

std::string ethText(const EthValue& value) {
  std::string text;
  for (const std::uint8_t byte : value.bytes) {
    if (!text.empty()) text += ':';
    text += hexByte(byte);
  }
  return text;
}

std::string ipText(int family, const void* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  return inet_ntop(family, address, text.data(), text.size());
}

template <template <std::size_t> class Integer>
std::string integerText(Bytes& bytes, std::uint8_t size) {
  switch (size) {
    case 1:
      return number(int{bytes.take<typename Integer<1>::Type>()});
    case 2:
      return number(bytes.take<typename Integer<2>::Type>());
    case 4:
      return number(bytes.take<typename Integer<4>::Type>());
    default:
      return number(bytes.take<typename Integer<8>::Type>());
  }
}

template <std::size_t Size>
struct Unsigned {
  using Type = std::conditional_t<
      Size == 1, std::uint8_t,
      std::conditional_t<Size == 2, std::uint16_t,
                         std::conditional_t<Size == 4, std::uint32_t, std::uint64_t>>>;
};

template <std::size_t Size>
struct Signed {
  using Type = std::make_signed_t<typename Unsigned<Size>::Type>;
};

std::string valueText(const Site::Item& item, Bytes& bytes) {
  switch (item.kind) {
    case Kind::label:
      return item.label;
    case Kind::boolean:
      return bytes.take<std::uint8_t>() != 0 ? "true" : "false";
    case Kind::unsignedNumber:
      return integerText<Unsigned>(bytes, item.size);
    case Kind::signedNumber:
      return integerText<Signed>(bytes, item.size);
    case Kind::real:
      return item.size == sizeof(float) ? number(bytes.take<float>())
                                        : number(bytes.take<double>());
    case Kind::text:
      return bytes.text(bytes.take<std::uint16_t>());
    case Kind::pointer:
      return "0x" + number(bytes.take<std::uint64_t>(), 16);
    case Kind::eth:
      return ethText(bytes.take<EthValue>());
    case Kind::ip4: {
      const std::uint32_t address = htonl(bytes.take<Ip4Value>().address);
      return ipText(AF_INET, &address);
    }
    case Kind::ip: {
      const auto value = bytes.take<IpValue>();
      return ipText(value.isIp6 != 0 ? AF_INET6 : AF_INET, value.bytes.data());
    }
    case Kind::macVlan: {
      const auto value = bytes.take<MacVlanValue>();
      return ethText(value.mac) + " vlan " + number(value.vlan);
    }
  }
  return {};
}

// The size that a value of that kind must say it has.
bool fits(Kind kind, std::uint8_t size) {
  switch (kind) {
    case Kind::label:
    case Kind::text:
      return size == 0;
    case Kind::boolean:
      return size == 1;
    case Kind::unsignedNumber:
    case Kind::signedNumber:
      return size == 1 || size == 2 || size == 4 || size == 8;
    case Kind::real:
      return size == sizeof(float) || size == sizeof(double);
    case Kind::pointer:
      return size == sizeof(std::uint64_t);
    case Kind::eth:
      return size == sizeof(EthValue);
    case Kind::ip4:
      return size == sizeof(Ip4Value);
    case Kind::ip:
      return size == sizeof(IpValue);
    case Kind::macVlan:
      return size == sizeof(MacVlanValue);
  }
  return false;
}

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

}  // namespace

std::string normalSignature(std::string_view pretty) {
  std::string text(pretty);
  replaceAll(text, " &", "&");
  replaceAll(text, " *", "*");
  replaceAll(text, "{anonymous}", "(anonymous namespace)");
  return text;
}

std::optional<std::string> render(const Site& site, std::span<const std::byte> record) {
  std::string text = site.signature;
  Bytes bytes(record);
  for (const Site::Item& item : site.items) {
    const bool first = &item == &site.items.front();
    if (first && !item.label.starts_with(' ')) text += ' ';
    text += valueText(item, bytes);
  }
  if (!bytes.sufficient()) return std::nullopt;
  return text;
}

std::vector<LabelledValue> valuesOf(const Site& site, std::span<const std::byte> record) {
  std::vector<LabelledValue> values;
  Bytes bytes(record);
  std::string label;
  for (const Site::Item& item : site.items) {
    std::string text = valueText(item, bytes);
    if (item.kind == Kind::label)
      label += text;
    else
      values.push_back({std::exchange(label, {}), item.kind, std::move(text)});
  }
  if (!label.empty()) values.push_back({std::move(label)});
  return values;
}

std::string serialize(const Site& site) {
  std::string bytes;
  append(bytes, static_cast<std::uint8_t>(site.level));
  append(bytes, static_cast<std::uint8_t>(site.items.size()));
  appendText(bytes, site.facility);
  appendText(bytes, site.signature);
  for (const Site::Item& item : site.items) {
    append(bytes, item.kind);
    append(bytes, item.size);
    appendText(bytes, item.label);
  }
  return bytes;
}

std::optional<Site> deserialize(std::span<const std::byte> from) {
  Bytes bytes(from);
  Site site;
  site.level = bytes.take<std::uint8_t>();
  const auto items = bytes.take<std::uint8_t>();
  site.facility = bytes.text(bytes.take<std::uint16_t>());
  site.signature = bytes.text(bytes.take<std::uint16_t>());
  for (unsigned i = 0; i < items; ++i) {
    Site::Item item;
    item.kind = static_cast<Kind>(bytes.take<std::uint8_t>());
    item.size = bytes.take<std::uint8_t>();
    item.label = bytes.text(bytes.take<std::uint16_t>());
    if (!fits(item.kind, item.size)) return std::nullopt;
    site.items.push_back(std::move(item));
  }
  if (!bytes.sufficient() || site.level >= mostLevels) return std::nullopt;
  return site;
}

}  // namespace Ringlog

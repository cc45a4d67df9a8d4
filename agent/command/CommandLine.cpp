#include "agent/command/CommandLine.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <optional>
#include <sstream>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include "agent/base/Text.h"
#include "model/Vorn/EthAddr.h"

namespace Agent {

namespace {

// The number that is all of the text, if it is within the type's range.
template <class Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number{};
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, number);
  if (end != last || error != std::errc()) return std::nullopt;
  return number;
}

// How many characters must be put in, taken out or exchanged to make one of the other.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (const char each : from) {
    std::size_t diagonal = row[0]++;
    for (std::size_t i = 0; i < to.size(); ++i) {
      const std::size_t exchanged = diagonal + (each == to[i] ? 0 : 1);
      diagonal = row[i + 1];
      row[i + 1] = std::min({exchanged, diagonal + 1, row[i] + 1});
    }
  }
  return row.back();
}

// " (did you mean NAME?)", or nothing if none is like it.
std::string guess(std::string_view name, const std::vector<std::string>& known) {
  const auto away = [name](const std::string& each) {
    return each.starts_with(name) ? 1 : distance(name, each);
  };
  const auto nearest = std::ranges::min_element(known, {}, away);
  constexpr std::size_t farthest = 2;
  if (nearest == known.end() || away(*nearest) > farthest) return "";
  return " (did you mean " + *nearest + "?)";
}

std::vector<std::string> commandsOf(const CLI::App& program) {
  std::vector<std::string> names;
  for (const CLI::App* command : program.get_subcommands(nullptr))
    names.push_back(command->get_name());
  return names;
}

std::vector<std::string> optionsOf(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options())
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  return names;
}

// Breaks lines between words so that none is longer than `width`.
std::string wrapped(const std::string& text, std::size_t width) {
  std::istringstream words(text);
  std::string all;
  std::size_t column = 0;
  for (std::string word; words >> word; column += word.size()) {
    const bool fits = column + 1 + word.size() <= width;
    if (column > 0) all += fits ? ' ' : '\n';
    column = column > 0 && fits ? column + 1 : 0;
    all += word;
  }
  return all;
}

class HelpLayout final : public CLI::Formatter {
 public:
  HelpLayout() { column_width(nameColumn); }

  // "--trace[=LEVEL]" for a flag that may have a value.
  std::string make_option_name(const CLI::Option* option, bool isPositional) const override {
    std::string name = CLI::Formatter::make_option_name(option, isPositional);
    if (const auto value = name.find('{'); value != std::string::npos)
      name.replace(value, std::string::npos, "[=" + option->get_type_name() + ']');
    return name;
  }

  std::string make_option_opts(const CLI::Option* option) const override {
    if (option->get_positional() || option->get_expected_min() == 0) return "";
    const std::string& standard = option->get_default_str();
    return ' ' + option->get_type_name() + (standard.empty() ? "" : '=' + standard);
  }

  std::string make_option_desc(const CLI::Option* option) const override {
    constexpr std::size_t terminal = 80;
    return wrapped(option->get_description(), terminal - nameColumn);
  }

 private:
  static constexpr std::size_t nameColumn = 30;
};

}  // namespace

CLI::Validator matching(const std::string& expected,
                        const std::function<bool(const std::string&)>& isGood) {
  return {[=](const std::string& text) {
            return isGood(text) ? "" : "\"" + printable(text) + "\": expected " + expected;
          },
          ""};
}

CLI::Validator wholeNumber(std::uint64_t least, std::uint64_t most) {
  const std::string expected = "a whole number from " + std::to_string(least) + " to " +
                               std::to_string(most) + ", without leading zeros";
  return matching(expected, [=](const std::string& text) {
    const auto number = numberIn<std::uint64_t>(text);
    return number && least <= *number && *number <= most && text == std::to_string(*number);
  });
}

CLI::Validator macAddress() {
  return matching("a MAC address, such as 02:00:00:00:00:01",
                  [](const std::string& text) { return Vorn::EthAddr::parse(text).has_value(); });
}

CLI::Validator oneOf(const std::vector<std::string>& words) {
  std::string expected;
  for (const std::string& word : words)
    appendTo(expected, &word == &words.back() ? " or " : ", ", word);
  return matching(expected, [=](const std::string& text) {
    return std::ranges::find(words, text) != words.end();
  });
}

namespace {

CLI::Validator realNumber(const std::string& what, double most) {
  return matching(what, [most](const std::string& text) {
    const auto number = numberIn<double>(text);
    return number && *number >= 0 && *number <= most;  // NaN is neither
  });
}

}  // namespace

CLI::Validator seconds() { return realNumber("a number of seconds from 0 to 1000000000", 1e9); }

CLI::Validator factor() {
  return matching("a number above 0, at most 1000000000", [](const std::string& text) {
    const auto number = numberIn<double>(text);
    return number && *number > 0 && *number <= 1e9;
  });
}

CLI::Validator share() { return realNumber("a share from 0 to 1", 1); }

bool isTerminal(int descriptor) {
  const char* const terminal = std::getenv("TERM");
  return isatty(descriptor) != 0 && (terminal == nullptr || terminal != std::string_view("dumb"));
}

bool wantsColours(const std::string& when) {
  if (when != "auto") return when == "always";
  const char* const unwanted = std::getenv("NO_COLOR");
  return isTerminal(STDOUT_FILENO) && (unwanted == nullptr || *unwanted == '\0');
}

namespace {

// As if the command line had given it.
void give(CLI::App& command, const CLI::ConfigItem& item) {
  CLI::Option* const option = command.get_option_no_throw("--" + item.name);
  if (option == nullptr || !item.parents.empty() || item.name == "config")
    throw CLI::ValidationError(
        "--config", '"' + printable(item.fullname()) + "\": expected an option of the command");
  if (option->count() > 0) return;
  const bool isFlag = option->get_expected_min() == 0;
  if (isFlag)
    option->add_result(option->get_flag_value(item.name, CLI::ConfigTOML().to_flag(item)));
  else
    option->add_result(item.inputs);
  option->run_callback();
}

}  // namespace

void addConfigFile(CLI::App& command) {
  const auto read = [&command](const std::string& file) {
    for (const CLI::ConfigItem& item : CLI::ConfigTOML().from_file(file)) give(command, item);
  };
  command
      .add_option_function<std::string>("--config", read,
                                        "A file of these options, without their dashes, in TOML")
      ->check(CLI::Validator(CLI::ExistingFile).description(""))
      ->type_name("FILE");
}

void layOutHelp(CLI::App& program) {
  const auto layout = std::make_shared<HelpLayout>();
  program.formatter(layout);
  for (CLI::App* command : program.get_subcommands(nullptr)) command->formatter(layout);
}

std::string usageText(const CLI::App& program, const CLI::ParseError& error,
                      const std::string& firstArgument) {
  const std::vector<std::string> commands = commandsOf(program);
  const auto named = std::ranges::find(commands, firstArgument);
  std::string text = error.what();
  std::string help = "--help";
  if (named != commands.end()) {
    help = *named + " --help";
    const CLI::App& command = *program.get_subcommand(*named);
    for (const std::string& rest : program.remaining(true))
      if (rest.starts_with('-')) {
        text = "unknown option " + printable(rest) + guess(rest, optionsOf(command));
        break;
      }
  } else if (!firstArgument.empty() && !firstArgument.starts_with('-')) {
    text = "unknown command " + printable(firstArgument) + guess(firstArgument, commands);
    text += ": expected one of";
    for (const std::string& command : commands) text += ' ' + command;
  }
  return text + "\nvxlan-agent " + help + " tells more.\n";
}

}  // namespace Agent

// What the command line takes and says, beyond what its library does: numbers that are never
// guessed at, the nearest name of what is not known, and help that fits a terminal of 80 columns.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Agent {

// Takes the texts for which `isGood` holds; of others it says that `expected` was.
CLI::Validator matching(const std::string& expected,
                        const std::function<bool(const std::string&)>& isGood);

// Takes decimal digits without leading zeros.
CLI::Validator wholeNumber(std::uint64_t least, std::uint64_t most);

CLI::Validator macAddress();

// Takes decimal numbers from 0 to a thousand million, "0.5" and "1e-3" among them.
CLI::Validator seconds();

// Takes decimal numbers above 0, to a thousand million.
CLI::Validator factor();

// Takes decimal numbers from 0 to 1.
CLI::Validator share();

// Where colours go: "auto" asks the terminal and the environment, "always" and "never" nobody.
bool wantsColours(const std::string& when);

// Whether a descriptor is a terminal that can do more than print.
bool isTerminal(int descriptor);

// Takes one of the words.
CLI::Validator oneOf(const std::vector<std::string>& words);

// Adds --config: a TOML file with the command's other options, whose names go without their dashes.
// What the command line gives counts more.
void addConfigFile(CLI::App& command);

// Lays out the help of `program` and its commands; to be called when all options are there.
void layOutHelp(CLI::App& program);

// What is wrong with the arguments, of which `error` was thrown.
std::string usageText(const CLI::App& program, const CLI::ParseError& error,
                      const std::string& firstArgument);

}  // namespace Agent

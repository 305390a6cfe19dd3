#include "CommandLine.h"

#include <getopt.h>

#include <cstddef>

#include "TerminalText.h"

namespace httppool {
namespace {

constexpr int kFirstCode = 256;  // of the options: above every letter

// Letters for getopt: each with a colon when it takes a value.
std::string lettersOf(const std::vector<CommandLine::Option>& options, CommandLine::Order order) {
  std::string letters = order == CommandLine::Order::OptionsFirst ? "+:" : ":";
  for (const CommandLine::Option& known : options) {
    if (known.letter != '\0') {
      letters += known.letter;
      letters += known.value == CommandLine::Value::Yes ? ":" : "";
    }
  }
  return letters;
}

std::vector<option> namesOf(const std::vector<CommandLine::Option>& options) {
  std::vector<option> names;
  int code = kFirstCode;
  for (const CommandLine::Option& known : options) {
    const int argument = known.value == CommandLine::Value::Yes ? required_argument : no_argument;
    names.push_back({known.name, argument, nullptr, code++});
  }
  names.push_back({nullptr, 0, nullptr, 0});
  return names;
}

const CommandLine::Option* optionOf(int found, const std::vector<CommandLine::Option>& options) {
  if (found >= kFirstCode) {
    return &options[static_cast<std::size_t>(found - kFirstCode)];
  }
  for (const CommandLine::Option& known : options) {
    if (known.letter != '\0' && known.letter == found) {
      return &known;
    }
  }
  return nullptr;
}

}  // namespace

std::string CommandLine::readOptions(const std::vector<Option>& options, Order order,
                                     const std::function<bool()>& isOver) {
  const std::string letters = lettersOf(options, order);
  const std::vector<option> names = namesOf(options);
  optind = 0;  // starts anew, also getopt's own reordering
  opterr = 0;
  // Only the main thread reads arguments.
  for (int found = 0; (found = getopt_long(count_, values_, letters.c_str(), names.data(), nullptr)) !=
                      -1;) {  // NOLINT(concurrency-mt-unsafe)
    const Option* const known = optionOf(found, options);
    if (known == nullptr) {
      return complaint(found);
    }
    known->take(optarg);
    if (isOver()) {
      return {};
    }
  }
  operandIndex_ = optind;
  return {};
}

std::string CommandLine::complaint(int found) const {
  const bool isShort = optopt > 0 && optopt < kFirstCode;
  const std::string name =
      isShort ? "-" + escaped(std::string(1, static_cast<char>(optopt))) : escaped(values_[optind - 1]);
  return "option " + name + (found == ':' ? " needs a value" : " is not known here");
}

std::vector<std::string> CommandLine::operands() const {
  return {values_ + operandIndex_, values_ + count_};
}

CommandLine CommandLine::fromFirstOperand() const {
  return {count_ - operandIndex_, values_ + operandIndex_};
}

}  // namespace httppool

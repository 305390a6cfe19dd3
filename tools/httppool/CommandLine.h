// The words of a command line, read by a table of options (getopt_long(3)). Main thread: getopt has one state for the
// process.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace httppool {

class CommandLine {
 public:
  enum class Value { No, Yes };
  struct Option {
    const char* name;
    char letter;  // '\0': none
    Value value;
    std::function<void(const char* value)> take;
  };
  enum class Order {
    OptionsFirst,  // up to the first operand
    Any            // operands and options mixed
  };

  CommandLine(int count, char* const* values) : count_(count), values_(values) {}

  // Takes each option; the operands are what is left. `isOver` is asked behind each option whether the rest does not
  // count. Returns what is wrong, or nothing.
  std::string readOptions(const std::vector<Option>& options, Order order,
                          const std::function<bool()>& isOver);

  // After readOptions.
  std::vector<std::string> operands() const;
  // The first operand begins a command line of its own: with it as the program's name. There must be one.
  CommandLine fromFirstOperand() const;

 private:
  std::string complaint(int found) const;

  int count_;
  char* const* values_;
  int operandIndex_ = 1;
};

}  // namespace httppool

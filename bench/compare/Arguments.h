#pragma once

// A command line of "--name value" and "--flag". A value; any thread.

#include <map>
#include <set>
#include <string>
#include <vector>

namespace bench {

class Arguments {
 public:
  /// Throws std::runtime_error at anything else than the named options. Names without the dashes.
  Arguments(int count, char** words, const std::set<std::string>& options,
            const std::set<std::string>& flags);

  bool has(const std::string& name) const { return values_.contains(name); }
  std::string text(const std::string& name, const std::string& otherwise = {}) const;
  /// Throws std::runtime_error when the value is no number or below `least`.
  double number(const std::string& name, double otherwise, double least) const;
  /// The value's parts between commas.
  std::vector<std::string> list(const std::string& name) const;

 private:
  std::map<std::string, std::string> values_;
};

}  // namespace bench

#include "bench/compare/Arguments.h"

#include <sstream>
#include <stdexcept>

namespace bench {

Arguments::Arguments(int count, char** words, const std::set<std::string>& options,
                     const std::set<std::string>& flags) {
  for (int at = 1; at < count; ++at) {
    const std::string word = words[at];
    const std::string name = word.starts_with("--") ? word.substr(2) : "";
    if (flags.contains(name)) {
      values_[name] = "";
    } else if (!options.contains(name)) {
      throw std::runtime_error("unknown option " + word);
    } else if (at + 1 == count) {
      throw std::runtime_error(word + " needs a value");
    } else {
      values_[name] = words[++at];
    }
  }
}

std::string Arguments::text(const std::string& name, const std::string& otherwise) const {
  const auto found = values_.find(name);
  return found == values_.end() ? otherwise : found->second;
}

double Arguments::number(const std::string& name, double otherwise, double least) const {
  if (!has(name)) {
    return otherwise;
  }
  std::istringstream stream(text(name));
  double value = 0;
  if (!(stream >> value) || !stream.eof() || value < least) {
    throw std::runtime_error("--" + name + ": " + text(name) + " is no number that fits");
  }
  return value;
}

std::vector<std::string> Arguments::list(const std::string& name) const {
  std::vector<std::string> parts;
  std::istringstream stream(text(name));
  for (std::string part; std::getline(stream, part, ',');) {
    parts.push_back(part);
  }
  return parts;
}

}  // namespace bench

#pragma once

// A host's own certificate panel, and its answer to the question for texts, through ZEP_Foundation.h. Lives on the
// main thread; panels are asked for there.

#include <functional>
#include <string>
#include <vector>

namespace test {

class PanelHost {
 public:
  /// `answer` is called for each panel with its request (JSON); what it returns is the panel's answer. `texts` are
  /// the host's texts (JSON object), empty: it has none.
  explicit PanelHost(std::function<int(const std::string& request)> answer, std::string texts = {});
  /// The same answer to every panel.
  explicit PanelHost(int answer) : PanelHost([answer](const std::string&) { return answer; }) {}
  ~PanelHost();
  PanelHost(const PanelHost&) = delete;
  PanelHost& operator=(const PanelHost&) = delete;

  /// The requests of all panels so far.
  const std::vector<std::string>& panels() const { return panels_; }
  /// Their kinds: "trust" or "certificate".
  std::vector<std::string> kinds() const;

 private:
  const std::function<int(const std::string&)> answer_;
  const std::string texts_;
  std::vector<std::string> panels_;
  long token_ = 0;
};

/// The text of a member of a JSON object of texts, without its escapes undone but for quotes; empty: none.
std::string textMember(const std::string& json, const std::string& name);

}  // namespace test

// What a host did against the protocol, in words.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tarvo::simulator {

/// Not locked: its device guards it.
class HostViolations {
 public:
  void add(std::string text) {
    // A host that goes on and on must not fill the memory.
    if (list_.size() < kMost) list_.push_back(std::move(text));
  }
  void add(const std::vector<std::string>& texts) {
    for (const auto& text : texts)
      add(text);
  }
  void clear() { list_.clear(); }
  const std::vector<std::string>& list() const { return list_; }

 private:
  static constexpr std::size_t kMost = 100;
  std::vector<std::string> list_;
};

}  // namespace tarvo::simulator

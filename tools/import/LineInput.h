// Lines of an input that is read only as far as something is there.
#pragma once

#include <optional>
#include <string>

namespace tarvo::tools {

/// One thread. The descriptor is lent.
class LineInput {
 public:
  explicit LineInput(int descriptor) : descriptor_(descriptor) {}

  /// The next whole line, without its end; none where there is none yet. A line of more than a
  /// megabyte ends the input.
  std::optional<std::string> next();
  /// Nothing more comes.
  bool hasEnded() const { return hasEnded_; }
  int descriptor() const { return descriptor_; }

 private:
  bool read();

  int descriptor_;
  std::string pending_;
  bool hasEnded_ = false;
};

}  // namespace tarvo::tools

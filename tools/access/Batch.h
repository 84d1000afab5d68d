// Many objects, one after the other: each has its own result, and a bad one does not end the rest.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "tarvo/Device.h"
#include "tools/access/ToolContext.h"
#include "tools/output/Output.h"

namespace tarvo::tools {

/// Main thread only. With --json the results are one array, an entry an object, with "error" in
/// those that failed.
class Batch {
 public:
  /// `done` says what was done to the objects, "files fetched", as counted() has it.
  Batch(ToolContext& context, std::string done);
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

  /// An object that went well; `line` is its result for a person, `bytes` what was moved.
  void succeeded(const PropertyDictionary& json, const std::string& line, std::uint64_t bytes = 0);
  /// One that was not needed.
  void skipped() { ++skipped_; }
  void failed(PropertyDictionary json, Failure failure);
  /// What is no file, where only one can be meant.
  void refuseNoFile(PropertyDictionary json, const ObjectInfo& object);
  /// One that has no room here, of so many bytes. A person is told of the first and of the sum.
  void left(PropertyDictionary json, Failure failure, std::uint64_t bytes);
  /// As failed(), for what the library raised about an object; after one that ends the device the
  /// batch ends. `object` in place of the error's own, where it is given, and `why` in place of its
  /// reason.
  void failed(PropertyDictionary json, const Error& error, const std::string& object = {},
              std::optional<std::string> why = {});
  /// Calls `work` for one object; what it raises is that object's failure.
  void attempt(const PropertyDictionary& json, const std::string& object,
               const std::function<void()>& work);
  /// Calls `work` for each of `all` until it shall not go on.
  template <typename All, typename Work>
  void forEach(const All& all, const Work& work) const {
    for (const auto& each : all)
      if (goesOn()) work(each);
  }
  /// Visits the objects that `choice` means until it shall not go on; what cannot be read and what
  /// nothing has are failures of the batch. Who watches is told how many were looked through,
  /// unless the objects are `dealtWith` meanwhile. Gives what Device::visit() does.
  std::uint64_t visit(Device& device, const ObjectChoice& choice,
                      const std::function<void(const ObjectInfo& object, bool isNamed)>& onObject,
                      bool dealtWith = false);
  std::uint64_t failures() const { return failed_ + left_; }
  /// Whether to go on: neither interrupted nor without a device.
  bool goesOn() const;

  /// What to do once the user has ended it, a sentence.
  void advise(std::string afterInterruption) { advice_ = std::move(afterInterruption); }
  /// Says the sum and gives the exit status. Raises what ends an interrupted command.
  int finish();

 private:
  ToolContext& context_;
  std::string done_;
  std::uint64_t succeeded_ = 0;
  std::uint64_t skipped_ = 0;
  std::uint64_t failed_ = 0;
  std::uint64_t left_ = 0;
  std::uint64_t bytes_ = 0;
  std::uint64_t bytesLeft_ = 0;
  bool isLost_ = false;
  std::string advice_;
  std::string kept_;  ///< what is said of the object at which the user ended it
};

}  // namespace tarvo::tools

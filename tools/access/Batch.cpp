#include "tools/access/Batch.h"

#include <new>
#include <utility>

#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "tools/access/ObjectSelection.h"
#include "tools/access/OpenedDevice.h"
#include "tools/output/Words.h"

namespace tarvo::tools {

Batch::Batch(ToolContext& context, std::string operation, std::string done)
    : context_(context), operation_(std::move(operation)), done_(std::move(done)) {
  context_.output.beginList();
}

void Batch::succeeded(const PropertyDictionary& json, const std::string& line,
                      std::uint64_t bytes) {
  ++succeeded_;
  bytes_ += bytes;
  context_.output.item(json);
  context_.output.line(line);
}

void Batch::failed(PropertyDictionary json, const Failure& failure) {
  ++failed_;
  json["error"] = asJSON(failure);
  context_.output.item(json);
  context_.output.objectError(failure);
}

void Batch::left(PropertyDictionary json, const Failure& failure, std::uint64_t bytes) {
  bytesLeft_ += bytes;
  json["error"] = asJSON(failure);
  context_.output.item(json);
  // Said once: the reason is the same for all, and finish() has the number.
  if (left_++ == 0) context_.output.objectError(failure);
}

void Batch::failed(const OpenedDevice& device, PropertyDictionary json, const std::string& object,
                   Status status, std::string why) {
  // What the user has ended is said once, for the command.
  if (context_.interrupt.isSet()) {
    kept_ = std::move(why);
    return;
  }
  isLost_ = isLost_ || device.isLost(status);
  failed(std::move(json), device.failure(object, status, std::move(why)));
}

void Batch::attempt(const OpenedDevice& device, const PropertyDictionary& json,
                    const std::string& object, const std::function<void()>& work) {
  try {
    work();
  } catch (const Exception& exception) {
    // Any other exception is about what the device has sent.
    const bool isMemory = exception.name() == exception_name::kMalloc;
    failed(device, json, object, isMemory ? status::kOutOfMemory : status::kICAProtocolError,
           exception.reason());
  } catch (const std::bad_alloc&) {
    failed(device, json, object, status::kOutOfMemory);
  }
}

void Batch::visit(OpenedDevice& device, const std::vector<std::string>& operands, bool all,
                  ObjectVisitor onObject) {
  const SelectionVisitor visitor = {
      .onObject = std::move(onObject),
      .onUnreadable =
          [&](std::uint32_t handle, Status status, const std::string& why) {
            failed(device, {{"handle", handle}}, handleText(handle), status, why);
          },
      .onUnmatched =
          [&](const std::string& operand) {
            failed({{"name", validUTF8(operand)}},
                   {.operation = operation_,
                    .object = operand,
                    .status = status::kFileNotFound,
                    .why = "no object on the device has that name",
                    .advice = "'tarvoctl ls --recursive' shows the objects."});
          },
      .goesOn = [this] { return goesOn(); }};
  visitSelection(device, operands, all, visitor);
}

bool Batch::goesOn() const {
  return !isLost_ && !context_.interrupt.isSet();
}

int Batch::finish() {
  std::string sum = counted(succeeded_, done_);
  if (bytes_ > 0) sum += ", " + sizeInWords(bytes_);
  if (skipped_ > 0) sum += ", " + std::to_string(skipped_) + " there already";
  if (failed_ > 0) sum += ", " + std::to_string(failed_) + " failed";
  if (left_ > 0) sum += ", " + std::to_string(left_) + " without room, " + sizeInWords(bytesLeft_);
  if (isLost_ && !context_.interrupt.isSet()) sum += "; the rest was not tried";
  // One object that went well needs no sum.
  if (succeeded_ + skipped_ + failed_ + left_ != 1) context_.output.message(sum);
  if (context_.interrupt.isSet())
    throw ToolError({.operation = operation_, .status = status::kCancelled, .why = kept_},
                    kInterrupted);
  context_.output.endList();
  return failed_ + left_ == 0 ? kDone : kFailed;
}

}  // namespace tarvo::tools

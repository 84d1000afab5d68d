#include "tools/access/Batch.h"

#include <utility>

#include "Utilities/NSStringUtilsCategory.h"
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {

Batch::Batch(ToolContext& context, std::string done) : context_(context), done_(std::move(done)) {
  context_.output.beginList();
}

void Batch::succeeded(const PropertyDictionary& json, const std::string& line,
                      std::uint64_t bytes) {
  ++succeeded_;
  bytes_ += bytes;
  context_.output.item(json);
  context_.output.line(line);
}

void Batch::failed(PropertyDictionary json, Failure failure) {
  ++failed_;
  failure.operation = context_.operation;
  json["error"] = asJSON(failure);
  context_.output.item(json);
  context_.output.objectError(failure);
}

void Batch::refuseNoFile(PropertyDictionary json, const ObjectInfo& object) {
  Failure failure{.object = object.path(),
                  .status = status::kNotAFile,
                  .why = object.isFolder() ? "it is a folder" : "it is a link or a device"};
  if (object.isFolder()) failure.advice = "Use a pattern such as '" + object.path() + "/*'.";
  failed(std::move(json), std::move(failure));
}

void Batch::left(PropertyDictionary json, Failure failure, std::uint64_t bytes) {
  bytesLeft_ += bytes;
  failure.operation = context_.operation;
  json["error"] = asJSON(failure);
  context_.output.item(json);
  // Said once: the reason is the same for all, and finish() has the number.
  if (left_++ == 0) context_.output.objectError(failure);
}

void Batch::failed(PropertyDictionary json, const Error& error, const std::string& object,
                   std::optional<std::string> why) {
  Failure failure = failureOf(error, object);
  if (why) failure.why = *std::move(why);
  // What the user has ended is said once, for the command.
  if (context_.interrupt.isSet()) {
    kept_ = std::move(failure.why);
    return;
  }
  isLost_ = isLost_ || error.endsDevice();
  failed(std::move(json), std::move(failure));
}

void Batch::attempt(const PropertyDictionary& json, const std::string& object,
                    const std::function<void()>& work) {
  try {
    work();
  } catch (const Error& error) {
    failed(json, error, object);
  }
}

std::uint64_t Batch::visit(
    Device& device, const ObjectChoice& choice,
    const std::function<void(const ObjectInfo& object, bool isNamed)>& onObject, bool dealtWith) {
  Search search(context_.output, device.info().name());
  ObjectVisitor visitor;
  if (!dealtWith) visitor.onLooked(search.counter());
  visitor
      .onObject([&](const ObjectInfo& object, bool isNamed) {
        onObject(object, isNamed);
        return goesOn();
      })
      .onUnreadable([&](std::uint32_t handle, const std::string& path, const Error& error) {
        failed(handle != 0 ? PropertyDictionary{{"handle", handle}}
                           : PropertyDictionary{{"path", validUTF8(path)}},
               error);
        return goesOn();
      })
      .onUnmatched([&](const std::string& operand) {
        const bool isVolume = device.info().kind() == DeviceKind::kVolume;
        failed({{"name", validUTF8(operand)}},
               Failure{.object = operand,
                       .status = status::kFileNotFound,
                       .why = isVolume ? "no file on the volume has that name"
                                       : "no object on the device has that name",
                       .advice = isVolume ? "'tarvoctl volume ls --all' shows the files."
                                          : "'tarvoctl ls --recursive' shows the objects."});
      });
  return device.visit(choice, visitor);
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
    throw ToolError({.operation = context_.operation,
                     .status = status::kCancelled,
                     .why = kept_,
                     .advice = advice_},
                    kInterrupted);
  context_.output.endList();
  return failed_ + left_ == 0 ? kDone : kFailed;
}

}  // namespace tarvo::tools

// How transfers are done: what stands behind Device::download() and upload().
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "library/access/DeviceState.h"
#include "platform/files/FilePlace.h"
#include "tarvo/Transfer.h"

namespace tarvo {

struct DownloadOptions::Data {
  std::string folder = ".";
  std::optional<std::string> name{};
  Existing existing = Existing::kRefuse;
  bool thumbnail = false;
  std::function<void(const ObjectInfo&)> begin{};
  TransferProgress progress{};
};

struct Downloaded::Data : FetchResult {
  explicit Data(FetchResult result) : FetchResult(std::move(result)) {}
};

struct UploadOptions::Data {
  std::uint32_t store = 0;
  std::uint32_t folder = 0;
  std::function<void(const std::string&, std::uint64_t)> begin{};
  TransferProgress progress{};
};

struct Uploaded::Data {
  std::uint32_t handle = 0;
  std::string name{};
  std::uint64_t size = 0;
};

namespace library {

Downloaded download(DeviceState& device, const ObjectInfo& object, DownloadRun& run);
/// A file of a volume, as Device::read() has it.
std::vector<std::byte> readFile(DeviceState& device, const ObjectInfo& object);
Uploaded upload(DeviceState& device, const std::string& path, const UploadOptions::Data& options);

}  // namespace library
}  // namespace tarvo

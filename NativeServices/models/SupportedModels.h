// The maker's supported models: which USB ids, and which cards, the agent takes.
//
// The product ids of PTP cameras come from the camera driver's setup information file, ggcam.inf,
// in the agent bundle's resources, completed with a fixed range. Picture frames are known by
// product id alone, memory cards by marker files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/MakerConstants.h"

namespace tarvo {

/// The model table of the process. The owner of the process makes one and holds it for its life.
/// Main thread.
class SupportedModels {
 public:
  /// `constants` gives the maker's vendor id and the bundle in which ggcam.inf lies.
  /// Both are copied. Takes the place of the table that was current.
  explicit SupportedModels(const MakerConstants& constants);
  /// Puts the former table back.
  ~SupportedModels();
  SupportedModels(const SupportedModels&) = delete;
  SupportedModels& operator=(const SupportedModels&) = delete;

  /// The table of the process, null when its owner has made none.
  static SupportedModels* current();

  /// Builds the list of product ids from ggcam.inf, unless it is built. Without the file or its
  /// section [Models.NTx86] that is logged and there is no list; the next call tries again.
  void getValidDscPids();

  /// True for the maker's PTP cameras whose product id is in the list, which is built when needed.
  bool isValidDscVid(std::int32_t vid, std::int32_t pid);

  /// True for the maker's picture frames and docks that appear as mass storage.
  bool isValidPVC(std::int32_t vid, std::int32_t pid) const;

  /// True for a memory card that the maker's devices have written to: one of their marker files
  /// lies under `logicalMountPath`. False without a path.
  static bool isValidCard(std::optional<std::string_view> logicalMountPath);

  /// The product ids in the order of the file, then the fixed ones; none before they are built.
  const std::optional<std::vector<std::int32_t>>& pidList() const { return sPidList; }

 private:
  std::vector<std::int32_t> modelLinePids(std::string_view lines) const;

  SupportedModels* const previous_;
  const std::int32_t vendorID_;
  const std::string bundlePath_;
  std::optional<std::vector<std::int32_t>> sPidList;
};

}  // namespace tarvo

// The inside of a mass-storage unit.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "library/access/SessionState.h"
#include "library/access/UnitChooser.h"
#include "tarvo/Units.h"

namespace tarvo {

struct UnitInfo::Data {
  library::Summary summary;
  /// Of the session's list: a unit that goes is none of it any more.
  std::weak_ptr<TarvoMSCDevice> unit;
  std::string description;
  std::string disk;
  std::string cardDisk;
  std::string cardName;
};

class UnitState {
 public:
  UnitState(std::shared_ptr<SessionState> session, UnitInfo info)
      : session_(std::move(session)), info_(std::move(info)) {}

  const std::shared_ptr<SessionState>& session() const { return session_; }
  const UnitInfo& info() const { return info_; }

 private:
  std::shared_ptr<SessionState> session_;
  UnitInfo info_;
};

namespace library {

UnitInfo unitInfo(const UnitSummary& summary);

}  // namespace library
}  // namespace tarvo

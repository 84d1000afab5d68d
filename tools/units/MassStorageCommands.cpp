// msc: the maker's units that show themselves as a disk.
#include <algorithm>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "msc/TarvoMSCDevice.h"
#include "msc/TarvoMSCDeviceList.h"
#include "platform/diskarbitration/UDisks2Refusal.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/ToolError.h"
#include "tools/output/Words.h"
#include "tools/units/UnitChooser.h"

namespace tarvo::tools {
namespace {

struct UnitModeOptions {
  std::string mode{};  ///< "camera", "startup" or "memory"
  bool powerDown = false;
  std::uint32_t wakeAfter = 0;  ///< the unit's mode page has a tenth of it
  bool permanent = false;
  bool yes = false;
};

struct UnitMountOptions {
  std::string disk{};  ///< BSD name; empty: the only one that can be meant
};

/// A unit with the command that it is for.
struct Chosen {
  Chosen(ToolContext& context, std::string name)
      : operation(std::move(name)), summary(chooseUnit(context, operation)), unit(*summary.unit) {}

  /// Raises a ToolError about what the unit, or who objected, said last.
  [[noreturn]] void fail(std::string object = {}) const {
    const auto& failure = unit.lastFailure();
    throw ToolError({.operation = operation,
                     .object = object.empty() ? inWords(summary) : std::move(object),
                     .status = failure.status,
                     .why = failure.why},
                    failure.status == status::kCancelled ? kInterrupted : kFailed);
  }
  void require(bool isDone, const std::string& object = {}) const {
    if (!isDone) fail(object);
  }

  std::string operation;
  UnitSummary summary;
  TarvoMSCDevice& unit;
};

/// `json` with what the unit is.
void tell(ToolContext& context, const Chosen& chosen, const PropertyDictionary& json,
          const std::string& words) {
  if (context.output.isJSON()) {
    PropertyDictionary document = asJSON(chosen.summary);
    document.update(json);
    context.output.document(document);
  } else {
    context.output.line(words);
  }
}

std::string yesOrNo(const PropertyDictionary& mode, const char* key) {
  return mode.value(key, false) ? "yes" : "no";
}

std::string modeInWords(const PropertyDictionary& mode) {
  std::vector<std::string> words;
  for (const char* name : {"camera", "startup", "memory"})
    if (mode.value(std::string(name) + "Mode", false)) words.emplace_back(name);
  return words.empty() ? "none" : joined(words);
}

std::string diskOf(const Mount& mount) {
  return lastPathComponent(mount.device);
}

/// "/media/u/CARD (sdb1) is still mounted, in use by vi (12)".
std::string stillMounted(const Mount& mount) {
  const std::string users = processesUsing({mount.mountPoint});
  return mount.mountPoint + " (" + diskOf(mount) + ") is still mounted" +
         (users.empty() ? "" : ", in use by " + users);
}

/// Every volume of the unit. What the system calls unmounted is looked at once more: another
/// program may have mounted it, or it is none that the disk service knows.
void unmountVolumes(const Chosen& chosen) {
  const std::string disk = chosen.unit.bsdName().value_or("");
  chosen.require(chosen.unit.unmountMedia() == status::kOK, disk);
  // A unit without a disk of its own may have a card.
  for (const Mount& mount : chosen.unit.mounts())
    chosen.require(chosen.unit.unmountAllPartitions(diskOf(mount)) == status::kOK, diskOf(mount));
  std::vector<std::string> rest;
  for (const Mount& mount : chosen.unit.mounts())
    rest.push_back(stillMounted(mount));
  if (!rest.empty())
    throw ToolError({.operation = chosen.operation,
                     .object = inWords(chosen.summary),
                     .status = status::kIOReturnBusy,
                     .why = joined(rest)});
}

/// A unit that cannot come back by itself is sent away only when a person says so.
void requireLeave(const ToolContext& context, const Chosen& chosen, bool yes) {
  if (yes || chosen.unit.canAutoPowerCycle()) return;
  if (chosen.unit.lastFailure().status != status::kOK) chosen.fail();
  const std::string unit = inWords(chosen.summary);
  const Consent consent(context, chosen.operation, false,
                        "send it away: " + unit + " says that it cannot come back by itself");
  consent.require(unit + " says that it cannot come back by itself. Send it away?",
                  "nothing was changed");
}

/// The block devices of the unit's USB device that hold no others: partitions, and disks without
/// any.
std::vector<std::string> disksOf(Registry& registry, const UnitSummary& unit) {
  std::vector<std::pair<ServiceHandle, std::string>> found;
  std::vector<ServiceHandle> holders;
  const ServiceHandle usbDevice = usbHandleAbove(registry, unit.unit->iokitService());
  for (const ServiceHandle service : registry.servicesMatching({{"IOClass", "block"}})) {
    const auto properties = registry.properties(service);
    const auto name = properties ? textForKey(*properties, "BSD Name") : std::nullopt;
    if (!name || usbDevice == 0 || usbDeviceOfDisk(registry, *name) != usbDevice) continue;
    found.emplace_back(service, *name);
    const auto above = registry.ancestors(service).value_or(std::vector<ServiceHandle>{});
    holders.insert(holders.end(), above.begin(), above.end());
  }
  std::vector<std::string> names;
  for (const auto& [service, name] : found)
    if (std::ranges::count(holders, service) == 0) names.push_back(name);
  return names;
}

/// The disk that is `wanted`, or the card of the unit: its own disk is meant only where it has no
/// other.
std::string diskToMount(ToolContext& context, const Chosen& chosen, const std::string& wanted) {
  auto names = disksOf(context.platform.services().registry, chosen.summary);
  const bool isThere = std::ranges::count(names, wanted) > 0;
  if (isThere) return wanted;
  if (names.empty() || !wanted.empty())
    throw ToolError({.operation = chosen.operation,
                     .object = inWords(chosen.summary),
                     .why = "the unit has no disk" + (wanted.empty() ? "" : " '" + wanted + "'") +
                            (names.empty() ? "" : "; it has " + joined(names)),
                     .advice = "Check that the memory card is in its slot."});
  if (names.size() > 1) std::erase(names, chosen.unit.bsdName().value_or(""));
  if (names.size() == 1) return names.front();
  refuseUsage(chosen.operation, "say which disk: " + joined(names));
}

/// Where it is mounted now; empty where it is not.
std::string mountPointOf(const MountTable& mounts, const std::string& bsdName) {
  std::string path;
  for (const auto& mount : mounts.mounts())
    if (mount.device == "/dev/" + bsdName) path = mount.mountPoint;
  return path;
}

/// Every unit, by what is known of it without asking it.
int runUnitList(ToolContext& context) {
  const auto units = presentUnits(context.platform);
  Listing listing(context.output, {{"LOCATION"}, {"SERIAL"}, {"DISK"}, {"NAME"}, {"VOLUME"}},
                  Listing::kWhole);
  for (const auto& unit : units) {
    const auto json = asJSON(unit);
    listing.add(json, {locationInHex(unit), unit.serial, json.value("bsdName", ""),
                       json.value("name", ""), json.value("volume", "")});
  }
  listing.finish();
  if (units.empty()) context.output.message("No unit is connected.");
  return kDone;
}

int runUnitModeGet(ToolContext& context) {
  const Chosen chosen(context, "msc mode get");
  const auto mode = chosen.unit.usbModeDictionary();
  chosen.require(mode.has_value());
  if (context.output.isJSON()) {
    PropertyDictionary document = asJSON(chosen.summary);
    document.update(*mode);
    context.output.document(document);
    return kDone;
  }
  showFields(context.output,
             {{"Mode", modeInWords(*mode)},
              {"Can power-cycle by itself", yesOrNo(*mode, "supportsAutoPowerCycle")},
              {"Can wake after a given time", yesOrNo(*mode, "supportsVariableAutoWakeup")},
              {"Is a composite device", yesOrNo(*mode, "isCompositeDevice")},
              {"Wake-up", std::to_string(mode->value("autoWakeup", 0U))}});
  return kDone;
}

/// Warns of every volume that is mounted; it is left mounted. A unit that says that it cannot come
/// back by itself is asked about before it is sent away.
int runUnitModeSet(ToolContext& context, const UnitModeOptions& options) {
  const Chosen chosen(context, "msc mode set");
  for (const Mount& mount : chosen.unit.mounts())
    context.output.message("The volume " + stillMounted(mount) +
                           ": what has not been written to it yet may be lost.");
  requireLeave(context, chosen, options.yes);
  PropertyDictionary mode = {{options.mode + "Mode", true},
                             {"powerDown", options.powerDown},
                             {"permanent", options.permanent},
                             {"autowakeDelay", options.wakeAfter}};
  chosen.require(chosen.unit.setUSBModeDictionary(mode));
  tell(context, chosen, mode, inWords(chosen.summary) + " was sent to " + options.mode + " mode.");
  return kDone;
}

int runUnitModel(ToolContext& context) {
  const Chosen chosen(context, "msc model");
  const auto model = chosen.unit.model();
  chosen.require(model.has_value());
  tell(context, chosen, {{"model", validUTF8(*model)}}, *model);
  return kDone;
}

int runUnitClockSet(ToolContext& context) {
  const Chosen chosen(context, "msc clock set");
  const std::time_t now = std::time(nullptr);
  chosen.require(chosen.unit.setDateTime(now));
  const std::string date = localDateText(now, "%Y-%m-%d %H:%M:%S");
  tell(context, chosen, {{"dateTime", date}}, "The clock was set to " + date + ".");
  return kDone;
}

/// Says whether there are any; both are success.
int runUnitOrders(ToolContext& context) {
  const Chosen chosen(context, "msc orders");
  const bool isWaiting = chosen.unit.sharingOrderExists();
  const auto volume = chosen.unit.dcfVolumeName();
  if (!volume) context.output.message("No card of the unit is mounted.");
  tell(context, chosen, {{"sharingOrderExists", isWaiting}},
       isWaiting ? "Pictures on " + volume.value_or("the card") + " wait to be shared."
                 : "No pictures wait to be shared.");
  return kDone;
}

/// Every volume of the unit's USB device, wherever it is mounted.
int runUnitUnmount(ToolContext& context) {
  const Chosen chosen(context, "msc unmount");
  unmountVolumes(chosen);
  tell(context, chosen, {{"unmounted", true}}, inWords(chosen.summary) + " is unmounted.");
  return kDone;
}

int runUnitMount(ToolContext& context, const UnitMountOptions& options) {
  const Chosen chosen(context, "msc mount");
  const std::string disk = diskToMount(context, chosen, options.disk);
  chosen.require(chosen.unit.remountMediaWithBSDName(disk) == status::kOK, disk);
  const std::string path = mountPointOf(context.platform.services().mounts, disk);
  tell(context, chosen, {{"mounted", disk}, {"path", validUTF8(path)}},
       disk + " is mounted" + (path.empty() ? "." : " at " + path + "."));
  return kDone;
}

/// Leaves the tray alone where a volume stays mounted.
int runUnitEject(ToolContext& context) {
  const Chosen chosen(context, "msc eject");
  unmountVolumes(chosen);
  chosen.require(chosen.unit.ejectTray());
  tell(context, chosen, {{"ejected", true}}, inWords(chosen.summary) + " can be taken away.");
  return kDone;
}

void addModes(CommandGroup& msc) {
  auto group = msc.group("mode", "How it comes up on USB", "tarvoctl msc mode get");
  group.command("get", "Show it, and what the unit can do", "tarvoctl msc mode get",
                runUnitModeGet);
  const auto set = std::make_shared<UnitModeOptions>();
  group
      .command("set", "Send the unit to another mode",
               "tarvoctl msc mode set camera --power-down --wake-after 1000",
               [set](ToolContext& context) { return runUnitModeSet(context, *set); })
      .operand("MODE", set->mode, "camera, startup or memory")
      .required()
      .oneOf({"camera", "startup", "memory"})
      .flag("--power-down", set->powerDown, "Switch off, and come back in that mode")
      .count("--wake-after", set->wakeAfter, "How long to stay off; units count in tens")
      .needs("--power-down")
      .flag("--permanent", set->permanent, "For good, and not for once")
      .flag("--yes", set->yes, "Do not ask, though the unit cannot come back by itself")
      .more(
          "startup is the mode in which it starts up. Nothing is unmounted; volumes that\n"
          "are mounted are warned about.");
}

}  // namespace

void addMassStorageCommands(CommandGroup& root) {
  auto group = root.group("msc", "Cameras, frames and docks that show themselves as a disk",
                          "tarvoctl msc list");
  group.command("list", "Every one that is connected", "tarvoctl msc list", runUnitList)
      .more(
          "The other commands for units are for the only one, or for the one that --device\n"
          "names.");
  addModes(group);
  group.command("model", "The model's name as the unit has it", "tarvoctl msc model", runUnitModel);
  group.group("clock", "The unit's clock", "tarvoctl msc clock set")
      .command("set", "Set it to the time of this computer", "tarvoctl msc clock set",
               runUnitClockSet);
  group
      .command("orders", "Whether pictures on its card wait to be shared", "tarvoctl msc orders",
               runUnitOrders)
      .more("The exit status is 0 in either case.");
  group.command("unmount", "Unmount its volumes", "tarvoctl msc unmount", runUnitUnmount)
      .more("What keeps one busy is named.");
  const auto mount = std::make_shared<UnitMountOptions>();
  group
      .command("mount", "Mount its card", "tarvoctl msc mount",
               [mount](ToolContext& context) { return runUnitMount(context, *mount); })
      .operand("DISK", mount->disk, "Its block device, such as sdb1; the only one it has");
  group
      .command("eject", "Unmount its volumes and open its tray", "tarvoctl msc eject", runUnitEject)
      .more("A volume that is busy keeps the tray shut.");
}

}  // namespace tarvo::tools

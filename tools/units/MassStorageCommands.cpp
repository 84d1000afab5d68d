// msc: the maker's units that show themselves as a disk; and eject, for all that is connected.
#include <algorithm>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "Utilities/JSONReader.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/ToolError.h"
#include "tools/output/Words.h"

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

/// `json` with what the unit is.
void tell(ToolContext& context, const Unit& unit, const PropertyDictionary& json,
          const std::string& words) {
  PropertyDictionary document = asJSON(unit.info());
  document.update(json);
  context.output.result(document, words);
}

std::string yesOrNo(bool is) {
  return is ? "yes" : "no";
}

std::string modeInWords(const UnitMode& mode) {
  std::vector<std::string> words;
  if (mode.isCamera()) words.emplace_back("camera");
  if (mode.isStartup()) words.emplace_back("startup");
  if (mode.isMemory()) words.emplace_back("memory");
  return words.empty() ? "none" : joined(words);
}

/// A unit that cannot come back by itself is sent away only when a person says so.
void requireLeave(const ToolContext& context, Unit& unit, bool yes) {
  if (yes || unit.canPowerCycle()) return;
  const std::string says = unit.info().description() + " says that it cannot come back by itself";
  const Consent consent(context, false, "send it away: " + says);
  consent.require(says + ". Send it away?", "nothing was changed");
}

/// The disk that is `wanted`, or the card of the unit: its own disk is meant only where it has no
/// other.
std::string diskToMount(Unit& unit, const std::string& wanted) {
  auto names = unit.mountable();
  const bool isThere = std::ranges::count(names, wanted) > 0;
  if (isThere) return wanted;
  if (names.empty() || !wanted.empty())
    throw ToolError({.object = unit.info().description(),
                     .why = "the unit has no disk" + (wanted.empty() ? "" : " '" + wanted + "'") +
                            (names.empty() ? "" : "; it has " + joined(names)),
                     .advice = "Check that the memory card is in its slot."});
  if (names.size() > 1) std::erase(names, unit.info().disk());
  if (names.size() == 1) return names.front();
  refuseUsage("say which disk: " + joined(names));
}

/// Every unit, by what is known of it without asking it.
int runUnitList(ToolContext& context) {
  Listing listing(context.output, {{"LOCATION"}, {"SERIAL"}, {"DISK"}, {"NAME"}, {"VOLUME"}});
  for (const auto& unit : context.session().units())
    listing.add(asJSON(unit), {locationInHex(unit.location()), unit.serial(), unit.disk(),
                               unit.name(), unit.cardName()});
  return listing.finish("No unit is connected.");
}

void runUnitModeGet(ToolContext& context) {
  Unit unit = openUnit(context);
  const UnitMode mode = unit.mode();
  if (context.output.isJSON()) tell(context, unit, jsonFromText(mode.json()), {});
  showFields(context.output, {{"Mode", modeInWords(mode)},
                              {"Can power-cycle by itself", yesOrNo(mode.canPowerCycle())},
                              {"Can wake after a given time", yesOrNo(mode.canWakeAfter())},
                              {"Is a composite device", yesOrNo(mode.isComposite())},
                              {"Wake-up", std::to_string(mode.wakeUp())}});
}

/// Warns of every volume that is mounted; it is left mounted. A unit that says that it cannot come
/// back by itself is asked about before it is sent away.
void runUnitModeSet(ToolContext& context, const UnitModeOptions& options) {
  Unit unit = openUnit(context);
  for (const UnitMount& mount : unit.mounts()) {
    const std::string users = mount.users();
    context.output.message("The volume " + mount.path() + " (" + mount.disk() +
                           ") is still mounted" + (users.empty() ? "" : ", in use by " + users) +
                           ": what has not been written to it yet may be lost.");
  }
  requireLeave(context, unit, options.yes);
  unit.setMode(options.mode, options.powerDown, options.wakeAfter, options.permanent);
  tell(context, unit,
       {{options.mode + "Mode", true},
        {"powerDown", options.powerDown},
        {"permanent", options.permanent},
        {"autowakeDelay", options.wakeAfter}},
       unit.info().description() + " was sent to " + options.mode + " mode.");
}

void runUnitModel(ToolContext& context) {
  Unit unit = openUnit(context);
  const std::string model = unit.model();
  tell(context, unit, {{"model", validUTF8(model)}}, model);
}

void runUnitClockSet(ToolContext& context) {
  Unit unit = openUnit(context);
  const std::time_t now = std::time(nullptr);
  unit.setClock(now);
  const std::string date = localDateText(now, "%Y-%m-%d %H:%M:%S");
  tell(context, unit, {{"dateTime", date}}, "The clock was set to " + date + ".");
}

/// Says whether there are any; both are success.
void runUnitOrders(ToolContext& context) {
  Unit unit = openUnit(context);
  const bool isWaiting = unit.hasSharingOrders();
  const std::string& card = unit.info().cardName();
  if (unit.info().cardDisk().empty()) context.output.message("No card of the unit is mounted.");
  tell(context, unit, {{"sharingOrderExists", isWaiting}},
       isWaiting ? "Pictures on " + (card.empty() ? "the card" : card) + " wait to be shared."
                 : "No pictures wait to be shared.");
}

/// Every volume of the unit's USB device, wherever it is mounted.
void runUnitUnmount(ToolContext& context) {
  Unit unit = openUnit(context);
  unit.unmount();
  tell(context, unit, {{"unmounted", true}}, unit.info().description() + " is unmounted.");
}

void runUnitMount(ToolContext& context, const UnitMountOptions& options) {
  Unit unit = openUnit(context);
  const std::string disk = diskToMount(unit, options.disk);
  const std::string path = unit.mount(disk);
  tell(context, unit, {{"mounted", disk}, {"path", validUTF8(path)}},
       disk + " is mounted" + (path.empty() ? "." : " at " + path + "."));
}

/// Leaves the tray alone where a volume stays mounted.
void eject(ToolContext& context, Unit unit) {
  unit.eject();
  tell(context, unit, {{"ejected", true}}, unit.info().description() + " can be taken away.");
}

void runUnitEject(ToolContext& context) {
  eject(context, openUnit(context));
}

/// What can be let go of: each unit, and each device that is none of these.
struct Ejectable {
  std::vector<UnitInfo> units{};
  std::vector<DeviceInfo> volumes{};
  std::vector<DeviceInfo> cameras{};

  explicit Ejectable(Session& session) : units(session.units()) {
    for (const auto& device : session.devices()) {
      const bool isOfUnit = device.location() &&
                            std::ranges::count(units, device.location(), &UnitInfo::location) > 0;
      if (isOfUnit) continue;
      (device.kind() == DeviceKind::kVolume ? volumes : cameras).push_back(device);
    }
  }
};

/// The unit that --device names; none where it names none.
std::optional<UnitInfo> unitNamed(Session& session, const std::string& wanted) {
  try {
    return session.findUnit(wanted);
  } catch (const Error& error) {
    if (error.kind() != ErrorKind::kNotFound) throw;
    return std::nullopt;
  }
}

/// A camera has nothing that could be lost, which is as good as ejected.
void letGo(ToolContext& context, const DeviceInfo& device) {
  PropertyDictionary json = asJSON(device);
  const bool isVolume = device.kind() == DeviceKind::kVolume;
  if (isVolume) context.session().eject(device);
  json["ejected"] = isVolume;
  if (!isVolume) json["canBeUnplugged"] = true;
  context.output.result(
      json, device.description() + (isVolume ? " can be taken away."
                                             : " can simply be unplugged: nothing is mounted."));
}

void runEject(ToolContext& context) {
  Session& session = context.session();
  const std::string& wanted = context.options.device;
  const Ejectable all(session);
  if (wanted.empty() && all.units.size() + all.volumes.size() > 1) {
    std::vector<std::string> names;
    for (const auto& unit : all.units)
      names.push_back(unit.description());
    for (const auto& volume : all.volumes)
      names.push_back(volume.description());
    throw ToolError({.why = "several can be ejected: " + joined(names),
                     .advice = "Choose one with --device and its serial number, location or name."},
                    kBadUsage);
  }
  // A unit first: it opens its tray, too, which its card does not.
  if (!all.units.empty())
    if (const auto unit = unitNamed(session, wanted)) return eject(context, session.open(*unit));
  if (wanted.empty() && !all.volumes.empty()) return letGo(context, all.volumes.front());
  if (wanted.empty() && !all.cameras.empty()) return letGo(context, all.cameras.front());
  letGo(context, findDevice(context));
}

void addModes(CommandGroup& msc) {
  auto group = msc.group("mode", "How it comes up on USB", "tarvoctl msc mode get");
  group.command("get", "Show it, and what the unit can do", "tarvoctl msc mode get",
                runUnitModeGet);
  auto [set, mode] =
      group.command("set", "Send the unit to another mode",
                    "tarvoctl msc mode set camera --power-down --wake-after 1000", runUnitModeSet);
  set.required("MODE", mode.mode, "camera, startup or memory")
      .oneOf({"camera", "startup", "memory"})
      .flag("--power-down", mode.powerDown, "Switch off, and come back in that mode")
      .count("--wake-after", mode.wakeAfter, "How long to stay off; units count in tens")
      .needs("--power-down")
      .flag("--permanent", mode.permanent, "For good, and not for once")
      .flag("--yes", mode.yes, "Do not ask, though the unit cannot come back by itself")
      .more(
          "startup is the mode in which it starts up. Nothing is unmounted; volumes that\n"
          "are mounted are warned about.");
}

}  // namespace

void addMassStorageCommands(CommandGroup& root) {
  root.command("eject", "Let go of a card, a dock or a camera, so that it can be taken away",
               "tarvoctl eject --device CARD", runEject)
      .more(
          "Unmounts all of its volumes, and opens the tray of a unit. What keeps one busy is\n"
          "named. A camera that speaks PTP has nothing mounted and can simply be unplugged.");
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
  auto [mount, options] =
      group.command("mount", "Mount its card", "tarvoctl msc mount", runUnitMount);
  mount.operand("DISK", options.disk, "Its block device, such as sdb1; the only one it has");
  group
      .command("eject", "Unmount its volumes and open its tray", "tarvoctl msc eject", runUnitEject)
      .more("A volume that is busy keeps the tray shut.");
}

}  // namespace tarvo::tools

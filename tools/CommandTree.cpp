#include "tools/CommandTree.h"

#include <utility>

namespace tarvo::tools {
namespace {

constexpr double kShortestTimeout = 0.001;
constexpr double kLongestTimeout = 86400;
constexpr double kMillisecondsPerSecond = 1000;

/// A number of things: CLI11 would take -1 for a very large one.
const CLI::Validator kCount = CLI::Validator(CLI::NonNegativeNumber).description("");

}  // namespace

CommandTree::CommandTree()
    : app_("Everything that a Tarvo device can do, from a shell.", "tarvoctl") {
  addGlobals();
  addDeviceCommands();
  addStorageCommands();
  addListing();
  addTransfers();
  addRemoval();
  addVolumes();
  addProperties();
  addOrders();
  addAddressBook();
  addAlbums();
  addDeviceFiles();
  addMassStorage();
  addQueries();
  addModels();
  addRecords();
  app_.footer("'tarvoctl COMMAND --help' tells more.\n\nExample:\n  tarvoctl devices");
}

void CommandTree::addGlobals() {
  // Global options may stand behind the command, too.
  app_.fallthrough();
  app_.require_subcommand(1);
  app_.set_version_flag("--version", std::string("tarvoctl ") + TARVO_VERSION,
                        "Print the version and exit");
  app_.set_help_flag("-h,--help", "Print this help and exit");
  app_.add_flag("--json", globals_.json, "Results and errors as one JSON document");
  app_.add_option("--device", globals_.device, "Serial number, or USB location (decimal or 0x...)")
      ->type_name("SERIAL|LOCATION");
  app_.add_option("--config", globals_.configFile, "Read FILE in place of your own preferences")
      ->type_name("FILE");
  app_.add_flag("--quiet", globals_.quiet, "Neither messages nor progress");
  app_.add_option("--timeout", timeoutSeconds_, "How long the device may be silent")
      ->type_name("SECONDS")
      ->check(CLI::Range(kShortestTimeout, kLongestTimeout).description(""));
}

GlobalOptions CommandTree::globals() const {
  GlobalOptions options = globals_;
  if (timeoutSeconds_ > 0)
    options.timeout =
        std::chrono::milliseconds(static_cast<long>(timeoutSeconds_ * kMillisecondsPerSecond));
  return options;
}

CLI::App& CommandTree::add(CLI::App& parent, const std::string& name,
                           const std::string& description, const std::string& example,
                           Command run) {
  auto* command = parent.add_subcommand(name, description);
  command->footer("Example:\n  " + example);
  command->callback([this, run = std::move(run)] { command_ = run; });
  return *command;
}

CLI::App& CommandTree::addGroup(const std::string& name, const std::string& description,
                                const std::string& example) {
  return addGroup(app_, name, description, example);
}

CLI::App& CommandTree::addGroup(CLI::App& parent, const std::string& name,
                                const std::string& description, const std::string& example) {
  auto* group = parent.add_subcommand(name, description);
  group->require_subcommand(1);
  group->footer("Example:\n  " + example);
  return *group;
}

void CommandTree::addDeviceCommands() {
  auto& devices = add(app_, "devices", "Cameras and cards that are connected", "tarvoctl devices",
                      [this](ToolContext& context) { return runDevices(context, devices_); });
  devices.add_flag("--watch", devices_.watch, "Go on with what comes and goes, until Ctrl-C");
  devices.add_option("--count", devices_.count, "End after N arrivals and removals")
      ->type_name("N")
      ->check(kCount);
  add(app_, "info", "What the device says of itself and holds", "tarvoctl info", runInfo);
  auto& clock = addGroup("clock", "The device's clock", "tarvoctl clock set");
  add(clock, "set", "Set it to the time of this computer", "tarvoctl clock set", runClockSet);
  add(app_, "reset", "Put the device into the state after switching on", "tarvoctl reset",
      runReset);
  auto& events = add(app_, "events", "What the device reports by itself, until Ctrl-C",
                     "tarvoctl events --count 1",
                     [this](ToolContext& context) { return runEvents(context, events_); });
  events.add_option("--count", events_.count, "End after N events")->type_name("N")->check(kCount);
}

void CommandTree::addStorageCommands() {
  auto& storage = addGroup("storage", "The stores of the device", "tarvoctl storage list");
  add(storage, "list", "Every store with its room", "tarvoctl storage list", runStorageList);
  auto& format = add(storage, "format", "Delete everything in a store",
                     "tarvoctl storage format 0x00010001 --yes",
                     [this](ToolContext& context) { return runStorageFormat(context, format_); });
  format.add_option("STORE", format_.store, "Store id; the only store where there is one")
      ->type_name("");
  format.add_flag("--yes", format_.yes, "Do not ask");
}

void CommandTree::addListing() {
  auto& list = add(app_, "ls", "Objects on the device", "tarvoctl ls --long --recursive",
                   [this](ToolContext& context) { return runList(context, list_); });
  list.add_option("--store", list_.store, "In this store alone")->type_name("ID");
  list.add_option("--format", list_.format, "Of this format alone: a code, or an extension (jpg)")
      ->type_name("FORMAT");
  list.add_option("--association", list_.association, "In this folder, by its handle")
      ->type_name("HANDLE");
  list.add_flag("--long", list_.isLong, "With format, size and date");
  list.add_flag("--recursive", list_.isRecursive, "With all that lies below, by its path");
  list.add_flag("--handles", list_.handlesOnly, "Handles alone; asks nothing of the objects");
  list.add_option("--limit", list_.limit, "End after N objects")->type_name("N")->check(kCount);
}

void CommandTree::addTransfers() {
  auto& get =
      add(app_, "get", "Fetch objects as files", "tarvoctl get 'TARV*.JPG' --output pictures/",
          [this](ToolContext& context) { return runGet(context, get_); });
  get.add_option("OBJECT", get_.objects, "Handles, names, or patterns such as '*.JPG'")
      ->type_name("");
  get.add_flag("--all", get_.all, "Everything but folders");
  get.add_flag("--new", get_.onlyNew,
               "Only what is not there yet; names that are taken get a number");
  get.add_option("--output", get_.output, "Folder, or the name of the one file")->type_name("PATH");
  get.add_flag("--thumbnail", get_.thumbnails, "The small picture in place of the object");
  get.add_flag("--overwrite", get_.overwrite, "Replace files that are there");
  get.add_flag("--keep-both", get_.keepBoth, "Number new files whose name is taken");

  auto& put = add(app_, "put", "Send files to the device", "tarvoctl put photo.jpg",
                  [this](ToolContext& context) { return runPut(context, put_); });
  put.add_option("FILE", put_.files, "Files to send")->type_name("")->required();
  put.add_option("--store", put_.store, "Into this store")->type_name("ID");
  put.add_option("--parent", put_.parent, "Into this folder, by its handle")->type_name("HANDLE");
}

void CommandTree::addRemoval() {
  auto& remove = add(app_, "rm", "Delete objects on the device", "tarvoctl rm TARV0002.JPG --yes",
                     [this](ToolContext& context) { return runRemove(context, remove_); });
  remove.add_option("OBJECT", remove_.objects, "Handles, names, or patterns such as '*.JPG'")
      ->type_name("")
      ->required();
  remove.add_flag("--yes", remove_.yes, "Do not ask");

  auto& rename =
      add(app_, "rename", "Give an object another name", "tarvoctl rename 0x00000003 HOLIDAY.JPG",
          [this](ToolContext& context) { return runRename(context, rename_); });
  rename.add_option("HANDLE", rename_.handle, "The object")->type_name("")->required();
  rename.add_option("NAME", rename_.name, "Its new name")->type_name("")->required();
}

void CommandTree::addProperties() {
  auto& group = addGroup("property", "The settings of the device", "tarvoctl property list");
  add(group, "list", "Every property with its value", "tarvoctl property list", runPropertyList);
  auto& get = add(group, "get", "One property, and what it may be set to",
                  "tarvoctl property get BatteryLevel",
                  [this](ToolContext& context) { return runPropertyGet(context, property_); });
  get.add_option("PROPERTY", property_.property, "Name or code")->type_name("")->required();
  auto& set = add(group, "set", "Set a property", "tarvoctl property set DateTime 20261124T120000",
                  [this](ToolContext& context) { return runPropertySet(context, property_); });
  set.add_option("PROPERTY", property_.property, "Name or code")->type_name("")->required();
  set.add_option("VALUE", property_.value, "Text, number, or JSON array, as 'get' shows it")
      ->type_name("")
      ->required();
}

void CommandTree::addQueries() {
  auto& query = add(app_, "query", "Rows of the device's own database",
                    "tarvoctl query 'SELECT * FROM pictures'",
                    [this](ToolContext& context) { return runQuery(context, query_); });
  query.add_option("SQL", query_.sql, "The query")->type_name("")->required();
}

void CommandTree::addModels() {
  auto& group = addGroup("models", "Which models are supported", "tarvoctl models check F055:0302");
  add(group, "list", "Every supported USB id", "tarvoctl models list", runModelsList);
  auto& check =
      add(group, "check", "Whether a USB id is supported", "tarvoctl models check F055:0302",
          [this](ToolContext& context) { return runModelsCheck(context, models_); });
  check.add_option("VID:PID", models_.ids, "USB id in hexadecimal, as lsusb shows it")
      ->type_name("")
      ->required();
}

void CommandTree::addRecords() {
  const std::string types = "Types:\n" + recordTypeHelp() + "\n";
  const auto addOptions = [this, &types](CLI::App& command) {
    command.add_option("TYPE", records_.type, "What the bytes are")->type_name("")->required();
    command.add_option("FILE", records_.files, "Files; '-' is standard input")
        ->type_name("")
        ->required();
    command.footer(types + command.get_footer());
  };
  addOptions(add(app_, "decode", "Show the bytes of a data set as JSON",
                 "tarvoctl decode objectinfo object.bin",
                 [this](ToolContext& context) { return runDecode(context, records_); }));
  addOptions(add(app_, "encode", "Write the bytes of a data set that is given as JSON",
                 "tarvoctl encode objectinfo object.json",
                 [this](ToolContext& context) { return runEncode(context, records_); }));
}

}  // namespace tarvo::tools

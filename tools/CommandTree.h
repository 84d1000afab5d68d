// All commands with their options, for CLI11. Only the command line itself includes this.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>

#include "tools/CommandLine.h"
#include "tools/addressbook/AddressBookCommands.h"
#include "tools/device/DeviceCommands.h"
#include "tools/device/EventCommand.h"
#include "tools/device/ModelCommands.h"
#include "tools/device/PropertyCommands.h"
#include "tools/device/QueryCommand.h"
#include "tools/device/StorageCommands.h"
#include "tools/objects/AlbumCommands.h"
#include "tools/objects/DeviceFileCommands.h"
#include "tools/objects/GetCommand.h"
#include "tools/objects/ListCommand.h"
#include "tools/objects/PutCommand.h"
#include "tools/objects/RecordCommands.h"
#include "tools/objects/RemoveCommands.h"
#include "tools/orders/OrdersCommands.h"
#include "tools/units/MassStorageCommands.h"
#include "tools/volumes/VolumeCommands.h"

namespace tarvo::tools {

/// What CLI11 fills in lies here, so the tree outlives the command.
class CommandTree {
 public:
  CommandTree();
  CommandTree(const CommandTree&) = delete;
  CommandTree& operator=(const CommandTree&) = delete;

  CLI::App& app() { return app_; }
  /// The options as parsed; what they say of the time-out is in seconds there.
  GlobalOptions globals() const;
  /// Set by the parse.
  const Command& command() const { return command_; }

 private:
  void addGlobals();
  void addDeviceCommands();
  void addStorageCommands();
  void addListing();
  void addTransfers();
  void addRemoval();
  void addVolumes();
  void addProperties();
  void addOrders();
  void addAddressBook();
  void addAlbums();
  void addDeviceFiles();
  void addMassStorage();
  void addQueries();
  void addModels();
  void addRecords();

  /// A command that does something. Its help ends with `example`.
  CLI::App& add(CLI::App& parent, const std::string& name, const std::string& description,
                const std::string& example, Command run);
  /// One that only holds others.
  CLI::App& addGroup(const std::string& name, const std::string& description,
                     const std::string& example);
  CLI::App& addGroup(CLI::App& parent, const std::string& name, const std::string& description,
                     const std::string& example);

  CLI::App app_;
  GlobalOptions globals_;
  double timeoutSeconds_ = 0;
  Command command_;

  DevicesOptions devices_;
  EventOptions events_;
  FormatOptions format_;
  ListOptions list_;
  GetOptions get_;
  PutOptions put_;
  RemoveOptions remove_;
  RenameOptions rename_;
  VolumeListOptions volumeList_;
  FetchOptions volumeGet_;
  VolumeRemoveOptions volumeRemove_;
  PropertyOptions property_;
  OrdersShowOptions ordersShow_;
  OrdersFulfilOptions ordersFulfil_;
  OrdersDeleteOptions ordersDelete_;
  BookFileOptions bookValidate_;
  BookExportOptions bookExport_;
  BookImportOptions bookImport_;
  BookEditOptions bookEdit_;
  BookDeleteOptions bookDelete_;
  AlbumFileOptions albumFile_;
  FavouritesDeleteOptions favourites_;
  CollectionSetOptions collection_;
  FileOptions file_;
  UnitModeOptions unitMode_;
  UnitMountOptions unitMount_;
  QueryOptions query_;
  ModelCheckOptions models_;
  RecordOptions records_;
};

}  // namespace tarvo::tools

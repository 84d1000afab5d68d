// All commands with their options, for CLI11. Only the command line itself includes this.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>

#include "tools/AddressBookCommands.h"
#include "tools/AlbumCommands.h"
#include "tools/CommandLine.h"
#include "tools/DeviceCommands.h"
#include "tools/DeviceFileCommands.h"
#include "tools/EventCommand.h"
#include "tools/GetCommand.h"
#include "tools/ListCommand.h"
#include "tools/MassStorageCommands.h"
#include "tools/ModelCommands.h"
#include "tools/OrdersCommands.h"
#include "tools/PropertyCommands.h"
#include "tools/PutCommand.h"
#include "tools/QueryCommand.h"
#include "tools/RecordCommands.h"
#include "tools/RemoveCommands.h"
#include "tools/StorageCommands.h"
#include "tools/VolumeCommands.h"

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

// The part of the command line that is about orders, the address book and the maker's files.
#include "tools/CommandTree.h"

namespace tarvo::tools {

void CommandTree::addOrders() {
  auto& group = addGroup("orders", "What was marked to be sent, printed or transferred",
                         "tarvoctl orders list");
  add(group, "list", "Every order with whom or what it is for", "tarvoctl orders list",
      runOrdersList);
  auto& show = add(group, "show", "All that is known of orders, and their pictures",
                   "tarvoctl orders show --download orders/",
                   [this](ToolContext& context) { return runOrdersShow(context, ordersShow_); });
  show.add_option("ORDER", ordersShow_.orders, "Numbers in the list, or handles (0x...); all")
      ->type_name("");
  show.add_option("--download", ordersShow_.download, "Fetch the pictures, one folder an order")
      ->type_name("DIR");
  auto& fulfil = add(group, "fulfil", "Tell the device that pictures have been dealt with",
                     "tarvoctl orders fulfil 1", [this](ToolContext& context) {
                       return runOrdersFulfil(context, ordersFulfil_);
                     });
  fulfil.add_option("ORDER", ordersFulfil_.order, "Number in the list, or handle (0x...)")
      ->type_name("")
      ->required();
  fulfil.add_option("PICTURE", ordersFulfil_.pictures, "Names or handles; all of the order")
      ->type_name("");
  auto& remove =
      add(group, "delete", "Delete orders; the pictures stay", "tarvoctl orders delete --yes",
          [this](ToolContext& context) { return runOrdersDelete(context, ordersDelete_); });
  remove.add_option("ORDER", ordersDelete_.orders, "Numbers in the list, or handles (0x...); all")
      ->type_name("");
  remove.add_flag("--yes", ordersDelete_.yes, "Do not ask");
}

void CommandTree::addAddressBook() {
  auto& group = addGroup("addressbook", "The e-mail addresses that the device keeps",
                         "tarvoctl addressbook show");
  const auto addFormat = [](CLI::App& command, std::string& format) {
    command.add_option("--format", format, "json or vcard; by the file's ending (.vcf)")
        ->type_name("FORMAT");
  };
  add(group, "show", "Contacts, groups, and what the device takes", "tarvoctl addressbook show",
      runAddressBookShow);
  auto& validate = add(group, "validate", "Whether the device's book, or a file, is valid",
                       "tarvoctl addressbook validate", [this](ToolContext& context) {
                         return runAddressBookValidate(context, bookValidate_);
                       });
  validate.add_option("FILE", bookValidate_.file, "'-' is standard input")->type_name("");
  addFormat(validate, bookValidate_.format);
  auto& exported =
      add(group, "export", "The book as a file", "tarvoctl addressbook export",
          [this](ToolContext& context) { return runAddressBookExport(context, bookExport_); });
  exported.add_option("FILE", bookExport_.file, "Without it to standard output")->type_name("");
  addFormat(exported, bookExport_.format);
  exported.add_flag("--overwrite", bookExport_.overwrite, "Replace a file that is there");
  auto& imported =
      add(group, "import", "Make the device's book that of a file",
          "tarvoctl addressbook import contacts.vcf --merge --yes",
          [this](ToolContext& context) { return runAddressBookImport(context, bookImport_); });
  imported.add_option("FILE", bookImport_.file, "'-' is standard input")->type_name("")->required();
  addFormat(imported, bookImport_.format);
  imported.add_flag("--merge", bookImport_.merge, "Remove nothing that only the device has");
  imported.add_flag("--dry-run", bookImport_.dryRun, "Say what would change, and send nothing");
  imported.add_flag("--sync", bookImport_.sync, "Only synchronise, which sends no contacts");
  imported.add_flag("--yes", bookImport_.yes, "Do not ask");
  auto& edit = add(group, "edit", "Change the book in your editor", "tarvoctl addressbook edit",
                   [this](ToolContext& context) { return runAddressBookEdit(context, bookEdit_); });
  edit.add_flag("--yes", bookEdit_.yes, "Do not ask");
  auto& remove = add(group, "delete", "Delete entries, also such as cannot be read",
                     "tarvoctl addressbook delete 0x0001000c --yes", [this](ToolContext& context) {
                       return runAddressBookDelete(context, bookDelete_);
                     });
  remove.add_option("HANDLE", bookDelete_.entries, "Handles (0x...)")->type_name("")->required();
  remove.add_flag("--yes", bookDelete_.yes, "Do not ask");
}

void CommandTree::addAlbums() {
  auto& albums = addGroup("albums", "Albums and their names", "tarvoctl albums show");
  add(albums, "list", "Every album on the device", "tarvoctl albums list", runAlbumsList);
  add(albums, "show", "What the file of album names holds", "tarvoctl albums show", runAlbumsShow);
  auto& get = add(albums, "get", "Fetch that file", "tarvoctl albums get albums.lcb",
                  [this](ToolContext& context) { return runAlbumsGet(context, albumFile_); });
  get.add_option("FILE", albumFile_.file, "Its name here")->type_name("")->required();
  get.add_flag("--overwrite", albumFile_.overwrite, "Replace a file that is there");
  auto& put = add(albums, "put", "Send a file in its place", "tarvoctl albums put albums.lcb --yes",
                  [this](ToolContext& context) { return runAlbumsPut(context, albumFile_); });
  put.add_option("FILE", albumFile_.file, "A file whose name ends in .lcb")
      ->type_name("")
      ->required();
  put.add_flag("--yes", albumFile_.yes, "Do not ask");

  auto& favourites =
      addGroup("favourites", "Pictures that are marked as favourites", "tarvoctl favourites list");
  add(favourites, "list", "Every favourite", "tarvoctl favourites list", runFavouritesList);
  auto& remove =
      add(favourites, "delete", "Delete all of them", "tarvoctl favourites delete --yes",
          [this](ToolContext& context) { return runFavouritesDelete(context, favourites_); });
  remove.add_flag("--yes", favourites_.yes, "Do not ask");
}

void CommandTree::addDeviceFiles() {
  auto& collection = addGroup("collection", "The id under which the device files what it gets",
                              "tarvoctl collection get");
  add(collection, "get", "Show it", "tarvoctl collection get", runCollectionGet);
  auto& set = add(collection, "set", "Set it, or take it away",
                  "tarvoctl collection set 00112233-4455-6677-8899-AABBCCDDEEFF",
                  [this](ToolContext& context) { return runCollectionSet(context, collection_); });
  set.add_option("ID", collection_.id, "A GUID")->type_name("");
  set.add_flag("--clear", collection_.clear, "Take it away");

  auto& shoebox =
      addGroup("shoebox", "The device's shoebox of pictures", "tarvoctl shoebox add photo.jpg");
  const auto addFile = [this](CLI::App& command, const char* what) {
    command.add_option("FILE", file_.file, what)->type_name("")->required();
  };
  addFile(add(shoebox, "send", "Send a shoebox file", "tarvoctl shoebox send pictures.sbx",
              [this](ToolContext& context) { return runShoeboxSend(context, file_); }),
          "A shoebox file (.sbx)");
  addFile(add(shoebox, "add", "Add a picture to it", "tarvoctl shoebox add photo.jpg",
              [this](ToolContext& context) { return runShoeboxAdd(context, file_); }),
          "A picture");

  auto& wireless = addGroup("wireless-config", "Settings for a wireless network",
                            "tarvoctl wireless-config show");
  add(wireless, "show", "Show them, passwords included", "tarvoctl wireless-config show",
      runWirelessConfigShow);

  addFile(add(app_, "display", "Show something on the back of the camera",
              "tarvoctl display request.bin",
              [this](ToolContext& context) { return runDisplay(context, file_); }),
          "The bytes of a display request; '-' is standard input");
}

}  // namespace tarvo::tools

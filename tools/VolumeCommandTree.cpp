// The part of the command line that is about mounted volumes.
#include "tools/CommandTree.h"

namespace tarvo::tools {

void CommandTree::addVolumes() {
  auto& group =
      addGroup("volume", "Files on a mounted card, or a camera in disk mode", "tarvoctl volume ls");
  auto& list =
      add(group, "ls", "Every picture by its path, as it is found", "tarvoctl volume ls --long",
          [this](ToolContext& context) { return runVolumeList(context, volumeList_); });
  list.add_flag("--long", volumeList_.isLong, "With format, size and date");
  list.add_flag("--all", volumeList_.all, "Every file and folder");

  auto& get = add(group, "get", "Copy files off it", "tarvoctl volume get --new --output pictures/",
                  [this](ToolContext& context) { return runVolumeGet(context, volumeGet_); });
  get.add_option("OBJECT", volumeGet_.objects, "Names, paths, or patterns such as '*.JPG'")
      ->type_name("");
  get.add_flag("--all", volumeGet_.all, "Every file, pictures or not");
  get.add_flag("--new", volumeGet_.onlyNew,
               "Only what is not there yet; names that are taken get a number");
  get.add_option("--output", volumeGet_.output, "Folder, or the name of the one file")
      ->type_name("PATH");
  get.add_flag("--overwrite", volumeGet_.overwrite, "Replace files that are there");
  get.add_flag("--keep-both", volumeGet_.keepBoth, "Number new files whose name is taken");

  auto& remove =
      add(group, "rm", "Delete files on it", "tarvoctl volume rm TARV0001.JPG --yes",
          [this](ToolContext& context) { return runVolumeRemove(context, volumeRemove_); });
  remove.add_option("OBJECT", volumeRemove_.objects, "Names, paths, or patterns such as '*.JPG'")
      ->type_name("")
      ->required();
  remove.add_flag("--yes", volumeRemove_.yes, "Do not ask");
}

}  // namespace tarvo::tools

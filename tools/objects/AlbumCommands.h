// albums and favourites: what a device keeps about its pictures, beside them.
#pragma once

#include <string>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// The albums of the device, an object each.
int runAlbumsList(ToolContext& context);
/// What the device's file of album names holds.
int runAlbumsShow(ToolContext& context);

struct AlbumFileOptions {
  std::string file{};
  bool overwrite = false;  ///< of this computer's file
  bool yes = false;        ///< does not ask
};

/// That file as a file here.
int runAlbumsGet(ToolContext& context, const AlbumFileOptions& options);
/// A file in its place. Keeps the old one.
int runAlbumsPut(ToolContext& context, const AlbumFileOptions& options);

/// The pictures that are marked as favourites.
int runFavouritesList(ToolContext& context);

struct FavouritesDeleteOptions {
  bool yes = false;
};
/// Deletes all of them.
int runFavouritesDelete(ToolContext& context, const FavouritesDeleteOptions& options);

}  // namespace tarvo::tools

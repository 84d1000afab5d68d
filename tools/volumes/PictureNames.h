// What cameras write: pictures and films, by the names of their files.
#pragma once

#include <string_view>

namespace tarvo::tools {

/// By the extension, without regard to case; never a hidden file. Any thread.
bool isPictureOrFilm(std::string_view name);

}  // namespace tarvo::tools

// A file of a PTP device, whole or not at all, in a folder of this machine.
#pragma once

#include <string>

#include "Utilities/Status.h"
#include "platform/imagecapture/PTPChannel.h"
#include "platform/imagecapture/PTPObjectReader.h"

namespace tarvo {

/// Downloads `object` by one GetObject into `folder`, under the last component of its name. It lies
/// in a hidden file beside that until it is whole and as long as announced, and that file is
/// removed on failure. The caller holds the channel.
///
/// `path` is the file that was made; it is left alone on failure. kFileNotFound for a name that is
/// none (empty, "." and "..", with a zero character), and for a folder that is not there;
/// kDuplicateFile for a file that is; kIOError when it cannot be written or came short; a response
/// code other than OK; otherwise as for PTPChannel::transact.
Status downloadObject(PTPChannel& channel, const PTPObject& object, const std::string& folder,
                      std::string& path, std::string* why);

}  // namespace tarvo

// Downloads all that the camera has and the folder has not: download [FOLDER]. Ctrl-C ends it in
// order; the next time it goes on where it stopped.
#include <iostream>

#include "tarvo/Device.h"

namespace {

bool show(std::uint64_t done, std::uint64_t size) {
  if (size > 0) std::cerr << done * 100 / size << " %\r";
  return true;  // false would cancel
}

void downloadInto(const std::string& folder) {
  const tarvo::StopSignals stop;
  tarvo::Session session(tarvo::SessionOptions().stopBy(stop));
  auto camera = session.openCamera();
  tarvo::DownloadRun run(tarvo::DownloadOptions()
                             .folder(folder)
                             .existing(tarvo::Existing::kKeepOthers)
                             .progress(show));
  camera.visit(tarvo::ObjectQuery().recursive(), [&](const tarvo::ObjectInfo& object) {
    if (!object.isFolder() && !run.isThere(object))
      std::cout << object.path() << ": " << camera.download(object, run) << '\n';
    return true;
  });
}

}  // namespace

int main(int count, char** words) {
  try {
    downloadInto(count > 1 ? words[1] : ".");
  } catch (const tarvo::Error& error) {
    std::cerr << error << '\n';
    return error.kind() == tarvo::ErrorKind::kCancelled ? 2 : 1;
  }
}

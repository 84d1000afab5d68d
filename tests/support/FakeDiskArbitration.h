// Disk arbitration that answers as the test says, and writes down what was asked of it.
//
//   FakeDiskArbitration disks;
//   disks.dissenter = DADissenter{status::kIOReturnBusy, "in use by vi (12)"};
//   EXPECT_THAT(disks.take(), ElementsAre("unmount sr0", "run 20000"));
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/diskarbitration/DiskArbitration.h"

namespace tarvo::test {

class FakeDiskArbitration : public DiskArbitration {
 public:
  std::optional<DADissenter> dissenter;  ///< of every operation
  bool answers = true;                   ///< else run() ends by its limit
  std::chrono::milliseconds takes{0};    ///< an answer, off the limit
  std::function<void()> onRun;
  bool interrupted = false;
  int openSessions = 0;
  ServiceHandle usbDevice = 0;  ///< whose the disk of the last operation has to be

  std::vector<std::string> take() { return std::exchange(calls_, {}); }

  std::unique_ptr<DASession> createSession() override { return std::make_unique<Session>(*this); }
  bool isInterrupted() const override { return interrupted; }

 private:
  class Session : public DASession {
   public:
    explicit Session(FakeDiskArbitration& owner) : owner_(owner) { ++owner_.openSessions; }
    ~Session() override { --owner_.openSessions; }
    void unmount(const DADisk& disk, Callback done) override { begin("unmount", disk, "", done); }
    void eject(const DADisk& disk, Callback done) override { begin("eject", disk, "", done); }
    void mount(const DADisk& disk, std::string_view location, Callback done) override {
      begin("mount", disk, " at '" + std::string(location) + "'", done);
    }
    bool run(std::chrono::milliseconds& left) override {
      owner_.calls_.push_back("run " + std::to_string(left.count()));
      left = owner_.answers ? left - owner_.takes : std::chrono::milliseconds(0);
      if (owner_.onRun) owner_.onRun();
      if (owner_.answers) done_(owner_.dissenter ? &*owner_.dissenter : nullptr);
      return isStopped_;
    }
    void stop() override { isStopped_ = true; }
    std::string awaited() const override { return "the service did not answer"; }

   private:
    void begin(const char* call, const DADisk& disk, const std::string& rest,
               const Callback& done) {
      owner_.calls_.push_back(std::string(call) + " " + disk.bsdName + rest);
      owner_.usbDevice = disk.usbDevice;
      done_ = done;
    }
    FakeDiskArbitration& owner_;
    Callback done_;
    bool isStopped_ = false;
  };

  std::vector<std::string> calls_;
};

}  // namespace tarvo::test

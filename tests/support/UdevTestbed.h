// A simulated /sys in this process, filled by the test. The program must run with
// libumockdev-preload.so.0 preloaded.
//
//   UdevTestbed bed;
//   bed.addUSBDevice("/sys/devices/usb1", {1, "0", 1});  // sends "add" too
//   bed.remove("/sys/devices/usb1");
#pragma once

#include <umockdev.h>

#include <cstdio>
#include <map>
#include <string>

#include "tests/support/MainContextWait.h"

namespace tarvo::test {

class UdevTestbed {
 public:
  using Texts = std::map<std::string, std::string>;
  struct USBPlace {
    unsigned bus;
    std::string portPath;
    unsigned number;
  };

  UdevTestbed() : bed_(umockdev_testbed_new()) {}
  ~UdevTestbed() { g_object_unref(bed_); }
  UdevTestbed(const UdevTestbed&) = delete;
  UdevTestbed& operator=(const UdevTestbed&) = delete;

  /// Adds a device at `path` (under /sys/devices) and sends its "add" event. `properties` are
  /// udev's, `attributes` are files in sysfs. With `node` there is a file /dev/NODE.
  void add(const std::string& path, const Texts& properties, const Texts& attributes,
           const std::string& node = "") {
    std::string description = "P: " + path.substr(std::string("/sys").size()) + "\n";
    if (!node.empty()) description += "N: " + node + "=00\n";
    for (const auto& [key, value] : properties)
      description += "E: " + key + "=" + value + "\n";
    for (const auto& [key, value] : attributes)
      description += "A: " + key + "=" + value + "\\n\n";
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(bed_, description.c_str(), &error)) {
      std::fprintf(stderr, "testbed: %s\n", error->message);
      g_error_free(error);
    }
  }

  void addUSBDevice(const std::string& path, const USBPlace& place, Texts attributes = {}) {
    attributes["busnum"] = std::to_string(place.bus);
    attributes["devpath"] = place.portPath;
    attributes["devnum"] = std::to_string(place.number);
    add(path, {{"SUBSYSTEM", "usb"}, {"DEVTYPE", "usb_device"}}, attributes);
  }

  /// `classes` is "CLASS SUBCLASS PROTOCOL" in hexadecimal, "06 01 01" for a PTP camera.
  void addUSBInterface(const std::string& path, const std::string& classes) {
    add(path, {{"SUBSYSTEM", "usb"}, {"DEVTYPE", "usb_interface"}},
        {{"bInterfaceNumber", "00"},
         {"bInterfaceClass", classes.substr(0, 2)},
         {"bInterfaceSubClass", classes.substr(3, 2)},
         {"bInterfaceProtocol", classes.substr(6, 2)}});
  }

  void uevent(const std::string& path, const char* action) {
    umockdev_testbed_uevent(bed_, path.c_str(), action);
  }
  /// The event, and the device gone from sysfs after it.
  void remove(const std::string& path) {
    uevent(path, "remove");
    umockdev_testbed_remove_device(bed_, path.c_str());
  }

  /// For what is not wrapped here.
  UMockdevTestbed* handle() const { return bed_; }

 private:
  UMockdevTestbed* bed_;
};

}  // namespace tarvo::test

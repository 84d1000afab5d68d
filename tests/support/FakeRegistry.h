// A device registry whose entries the test plugs in and out.
//
//   FakeRegistry registry;
//   auto camera = registry.plug({{"IOClass", "usb_device"}, {"USB Product Name", "Tarvo N10"}});
//   auto interface = registry.plug({{"IOClass", "usb_interface"}, ...}, camera);
//   registry.unplug(camera);  // the interface goes first
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/iokit/Registry.h"

namespace tarvo::test {

class FakeRegistry : public Registry {
 public:
  /// Adds an entry below `parent` (0: none) and announces it.
  ServiceHandle plug(PropertyDictionary properties, ServiceHandle parent = 0) {
    const ServiceHandle service = add(std::move(properties), parent);
    announce(service, &Subscriber::appeared);
    return service;
  }

  /// Adds an entry without announcing it: what was there before anybody asked.
  ServiceHandle add(PropertyDictionary properties, ServiceHandle parent = 0) {
    entries_.push_back({++lastHandle_, parent, std::move(properties)});
    return lastHandle_;
  }

  /// Announces an entry that was added.
  void announce(ServiceHandle service) { announce(service, &Subscriber::appeared); }

  /// Removes an entry and what lies below it, the lowest first, and announces each.
  void unplug(ServiceHandle service) {
    std::vector<ServiceHandle> children;
    for (const Entry& entry : entries_)
      if (entry.parent == service) children.push_back(entry.handle);
    for (const ServiceHandle child : children)
      unplug(child);
    announce(service, &Subscriber::terminated);
    std::erase_if(entries_, [&](const Entry& entry) { return entry.handle == service; });
  }

  /// From now on the properties of this entry cannot be read, as of a device that is just going.
  void makeUnreadable(ServiceHandle service) { unreadable_.insert(service); }

  std::optional<PropertyDictionary> properties(ServiceHandle service) override {
    const Entry* entry = find(service);
    if (!entry || unreadable_.contains(service)) return std::nullopt;
    return entry->properties;
  }

  std::optional<std::vector<ServiceHandle>> ancestors(ServiceHandle service) override {
    const Entry* entry = find(service);
    if (!entry) return std::nullopt;
    std::vector<ServiceHandle> above;
    while ((entry = find(entry->parent)))
      above.push_back(entry->handle);
    return above;
  }

  std::vector<ServiceHandle> servicesMatching(const PropertyDictionary& match) override {
    std::vector<ServiceHandle> found;
    for (const Entry& entry : entries_)
      if (propertiesMatch(entry.properties, match)) found.push_back(entry.handle);
    return found;
  }

  std::vector<ServiceHandle> servicesMatchingBSDName(std::string_view bsdName) override {
    if (bsdName.empty()) return {};
    return servicesMatching({{"BSD Name", bsdName}});
  }

  std::map<std::string, std::vector<std::string>, std::less<>> below;  ///< disksBelow()

  std::vector<std::string> disksBelow(std::string_view bsdName) override {
    const auto found = below.find(bsdName);
    return found == below.end() ? std::vector<std::string>{} : found->second;
  }

  std::unique_ptr<RegistrySubscription> addMatchingNotification(PropertyDictionary match,
                                                                Callback appeared,
                                                                Callback terminated) override {
    auto subscriber = std::make_shared<Subscriber>(
        Subscriber{std::move(match), std::move(appeared), std::move(terminated)});
    subscribers_->push_back(subscriber);
    return std::make_unique<Token>(subscribers_, subscriber, servicesMatching(subscriber->match));
  }

 private:
  struct Entry {
    ServiceHandle handle;
    ServiceHandle parent;
    PropertyDictionary properties;
  };
  struct Subscriber {
    PropertyDictionary match;
    Callback appeared;
    Callback terminated;
  };
  using Subscribers = std::vector<std::shared_ptr<Subscriber>>;

  struct Token : RegistrySubscription {
    Token(std::shared_ptr<Subscribers> all, std::shared_ptr<Subscriber> own,
          std::vector<ServiceHandle> there)
        : subscribers(std::move(all)), subscriber(std::move(own)), found(std::move(there)) {}
    const std::vector<ServiceHandle>& present() const override { return found; }
    ~Token() override {
      std::erase(*subscribers, subscriber);
      subscriber->appeared = subscriber->terminated = nullptr;
    }
    std::shared_ptr<Subscribers> subscribers;
    std::shared_ptr<Subscriber> subscriber;
    std::vector<ServiceHandle> found;
  };

  const Entry* find(ServiceHandle service) const {
    const auto entry =
        std::ranges::find_if(entries_, [&](const Entry& each) { return each.handle == service; });
    return entry == entries_.end() ? nullptr : &*entry;
  }

  void announce(ServiceHandle service, Callback Subscriber::*event) {
    const Entry* entry = find(service);
    if (!entry) return;
    const PropertyDictionary announced = entry->properties;
    const Subscribers all = *subscribers_;
    for (const auto& subscriber : all) {
      const Callback call = (*subscriber).*event;
      if (call && propertiesMatch(announced, subscriber->match)) call(service);
    }
  }

  std::vector<Entry> entries_;
  std::set<ServiceHandle> unreadable_;
  std::shared_ptr<Subscribers> subscribers_ = std::make_shared<Subscribers>();
  ServiceHandle lastHandle_ = 0;
};

}  // namespace tarvo::test

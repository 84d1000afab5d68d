#include "agent/AgentStatus.h"

#include <string_view>
#include <utility>

#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/models/SupportedModels.h"
#include "Utilities/Format.h"
#include "agent/AgentInterface.h"
#include "identify/DeviceInfoSupport.h"

namespace tarvo {
namespace {

using Values = AgentStatus::Values;

// A serial number or a path may hold bytes that are no UTF-8, which D-Bus does not carry.
GVariant* textVariant(const std::string& text) {
  return g_variant_new_take_string(
      g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
}

GVariant* devicesVariant(const Values& values) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a(siss)"));
  for (const AgentStatus::Device& device : values.devices) {
    g_variant_builder_add(&builder, "(@si@s@s)", textVariant(device.type), device.location,
                          textVariant(device.path), textVariant(device.serialNumber));
  }
  return g_variant_builder_end(&builder);
}

struct Property {
  std::string_view name;
  GVariant* (*variant)(const Values&);
  bool (*differs)(const Values&, const Values&);
};

template <auto Member>
bool differs(const Values& a, const Values& b) {
  return a.*Member != b.*Member;
}

template <auto Member>
GVariant* boolVariant(const Values& values) {
  return g_variant_new_boolean(values.*Member);
}

template <auto Member>
constexpr Property boolProperty(std::string_view name) {
  return {name, boolVariant<Member>, differs<Member>};
}

GVariant* busySinceVariant(const Values& values) {
  return g_variant_new_uint64(values.wirelessBusySince);
}

// In the order of the interface's description.
constexpr Property kProperties[] = {
    boolProperty<&Values::active>("Active"),
    boolProperty<&Values::relayRunning>("RelayRunning"),
    boolProperty<&Values::wirelessBusy>("WirelessBusy"),
    {"WirelessBusySince", busySinceVariant, differs<&Values::wirelessBusySince>},
    boolProperty<&Values::recoveryArmed>("RecoveryArmed"),
    {"Devices", devicesVariant, differs<&Values::devices>},
};

GVariant* getProperty(GDBusConnection*, const char*, const char*, const char*, const char* name,
                      GError** error, gpointer status) {
  for (const Property& property : kProperties) {
    if (property.name == name)
      return property.variant(static_cast<const AgentStatus*>(status)->values());
  }
  g_set_error(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_PROPERTY, "No property %s", name);
  return nullptr;
}

// GDBus checks names, types and access against the description before it calls; nothing can be set.
constexpr GDBusInterfaceVTable kVTable = {nullptr, getProperty, nullptr, {}};

using NodeInfo = std::unique_ptr<GDBusNodeInfo, GlibRelease<g_dbus_node_info_unref>>;

}  // namespace

AgentStatus::AgentStatus(RunLoop& loop, std::function<Values()> read, LogSink log)
    : loop_(loop), read_(std::move(read)), log_(std::move(log)) {}

AgentStatus::~AgentStatus() {
  detach();
}

bool AgentStatus::attach(GDBusConnection* connection) {
  // A bus that has come back is another connection.
  detach();
  const NodeInfo node(g_dbus_node_info_new_for_xml(kAgentInterfaceXML, nullptr));
  GErrorHolder error;
  registration_ = g_dbus_connection_register_object(
      connection, kAgentObjectPath, g_dbus_node_info_lookup_interface(node.get(), kAgentInterface),
      &kVTable, this, nullptr, error.out());
  if (registration_ == 0) {
    logTo(log_, LogLevel::kWarning,
          formatted("The status object cannot be shown on the bus: %s", error.message().c_str()));
    return false;
  }
  connection_ = retained(connection);
  return true;
}

void AgentStatus::detach() {
  if (!connection_) return;
  g_dbus_connection_unregister_object(connection_.get(), std::exchange(registration_, 0));
  connection_.reset();
}

// Read when idle, because reading looks at mount points and an arrival must not wait for that.
void AgentStatus::update() {
  // Several changes of one arrival are one signal.
  if (std::exchange(updatePending_, true)) return;
  loop_.performWhenIdle([this, alive = std::weak_ptr(alive_)] {
    if (alive.expired()) return;
    updatePending_ = false;
    refresh();
  });
}

void AgentStatus::refresh() {
  const Values before = std::exchange(values_, read_());
  if (connection_ && values_ != before) announce(before);
}

void AgentStatus::announce(const Values& before) const {
  GVariantBuilder changed;
  g_variant_builder_init(&changed, G_VARIANT_TYPE("a{sv}"));
  for (const Property& property : kProperties) {
    if (property.differs(values_, before))
      g_variant_builder_add(&changed, "{sv}", property.name.data(), property.variant(values_));
  }
  // A closed connection refuses the signal; its end is reported where the bus is watched.
  g_dbus_connection_emit_signal(connection_.get(), nullptr, kAgentObjectPath,
                                "org.freedesktop.DBus.Properties", "PropertiesChanged",
                                g_variant_new("(sa{sv}as)", kAgentInterface, &changed, nullptr),
                                nullptr);
}

// Asked anew each time: what a device is may show later than its arrival (a volume that is
// mounted), and nothing has to be kept in step.
std::vector<AgentStatus::Device> presentDevices() {
  const SupportedModels* models = SupportedModels::current();
  std::vector<AgentStatus::Device> shown;
  for (const auto& device : XTPictureDevice::deviceList()) {
    AgentStatus::Device& row = shown.emplace_back();
    row.serialNumber = device->serialNumber();
    // Without the list of models each look at a camera would try, and log, its reading once more.
    if (device->isPTPDevice() && (!models || !models->pidList())) continue;
    DeviceInfoSupport::getInfoForDevice(device, &row.type, &row.location, &row.path);
  }
  return shown;
}

}  // namespace tarvo

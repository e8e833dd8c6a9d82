#include "platform/power_source.h"

#include <dirent.h>
#include <dlfcn.h>

#include <fstream>
#include <mutex>

namespace trovix::platform {
namespace {

std::string ReadWord(const std::string& path) {
  std::ifstream in(path);
  std::string word;
  in >> word;
  return word;
}

// GIO's published C interface, resolved by name at run time: the library is optional, and its
// absence only means the kernel is asked instead. Handles are opaque here.
struct Gio {
  using BusGetSync = void* (*)(int bus_type, void* cancellable, void** error);
  using NewVariant = void* (*)(const char* format, ...);
  using CallSync = void* (*)(void* connection, const char* bus_name, const char* object_path,
                             const char* interface_name, const char* method_name, void* parameters,
                             const void* reply_type, int flags, int timeout_ms, void* cancellable, void** error);
  using GetChild = void* (*)(void* value, size_t index);
  using GetVariant = void* (*)(void* value);
  using GetBoolean = int (*)(void* value);
  using Unref = void (*)(void* value);
  using ErrorFree = void (*)(void* error);

  BusGetSync bus_get_sync = nullptr;
  NewVariant new_variant = nullptr;
  CallSync call_sync = nullptr;
  GetChild get_child = nullptr;
  GetVariant get_variant = nullptr;
  GetBoolean get_boolean = nullptr;
  Unref variant_unref = nullptr;
  ErrorFree error_free = nullptr;

  bool Load() {
    void* lib = ::dlopen("libgio-2.0.so.0", RTLD_NOW | RTLD_LOCAL);
    if (lib == nullptr) return false;
    bus_get_sync = reinterpret_cast<BusGetSync>(::dlsym(lib, "g_bus_get_sync"));
    new_variant = reinterpret_cast<NewVariant>(::dlsym(lib, "g_variant_new"));
    call_sync = reinterpret_cast<CallSync>(::dlsym(lib, "g_dbus_connection_call_sync"));
    get_child = reinterpret_cast<GetChild>(::dlsym(lib, "g_variant_get_child_value"));
    get_variant = reinterpret_cast<GetVariant>(::dlsym(lib, "g_variant_get_variant"));
    get_boolean = reinterpret_cast<GetBoolean>(::dlsym(lib, "g_variant_get_boolean"));
    variant_unref = reinterpret_cast<Unref>(::dlsym(lib, "g_variant_unref"));
    error_free = reinterpret_cast<ErrorFree>(::dlsym(lib, "g_error_free"));
    return bus_get_sync && new_variant && call_sync && get_child && get_variant && get_boolean && variant_unref &&
           error_free;
  }
};

const Gio* LoadedGio() {
  static Gio gio;
  static const bool loaded = gio.Load();
  return loaded ? &gio : nullptr;
}

PowerSource AskUPower() {
  const Gio* gio = LoadedGio();
  if (gio == nullptr) return PowerSource::kUnknown;
  constexpr int kBusTypeSystem = 1;
  void* error = nullptr;
  // The bus connection is GIO's shared one, kept for the process once made.
  static void* bus = nullptr;
  static std::mutex bus_mutex;
  {
    std::lock_guard lock(bus_mutex);
    if (bus == nullptr) bus = gio->bus_get_sync(kBusTypeSystem, nullptr, &error);
  }
  if (bus == nullptr) {
    if (error != nullptr) gio->error_free(error);
    return PowerSource::kUnknown;
  }
  void* reply = gio->call_sync(bus, "org.freedesktop.UPower", "/org/freedesktop/UPower",
                               "org.freedesktop.DBus.Properties", "Get",
                               gio->new_variant("(ss)", "org.freedesktop.UPower", "OnBattery"), "(v)", 0, 1000,
                               nullptr, &error);
  if (reply == nullptr) {
    // No UPower on the bus (or it did not answer within a second).
    if (error != nullptr) gio->error_free(error);
    return PowerSource::kUnknown;
  }
  void* boxed = gio->get_child(reply, 0);
  void* value = gio->get_variant(boxed);
  const bool on_battery = gio->get_boolean(value) != 0;
  gio->variant_unref(value);
  gio->variant_unref(boxed);
  gio->variant_unref(reply);
  return on_battery ? PowerSource::kBattery : PowerSource::kMains;
}

}  // namespace

PowerSource PowerSourceFromSupplies(const std::string& folder) {
  DIR* dir = ::opendir(folder.c_str());
  if (dir == nullptr) return PowerSource::kUnknown;
  bool any = false, mains_online = false, discharging = false;
  while (dirent* e = ::readdir(dir)) {
    if (e->d_name[0] == '.') continue;
    const std::string supply = folder + "/" + e->d_name;
    const std::string type = ReadWord(supply + "/type");
    if (type.empty()) continue;
    any = true;
    if (type == "Mains" || type == "USB") {
      mains_online |= ReadWord(supply + "/online") == "1";
    } else if (type == "Battery") {
      // A mouse's or a headset's battery says scope "Device"; only the system's own counts.
      if (ReadWord(supply + "/scope") == "Device") continue;
      discharging |= ReadWord(supply + "/status") == "Discharging";
    }
  }
  ::closedir(dir);
  if (!any) return PowerSource::kUnknown;
  return discharging && !mains_online ? PowerSource::kBattery : PowerSource::kMains;
}

PowerSource CurrentPowerSource(std::string* via) {
  const PowerSource upower = AskUPower();
  if (upower != PowerSource::kUnknown) {
    if (via != nullptr) *via = "UPower";
    return upower;
  }
  if (via != nullptr) *via = "/sys/class/power_supply";
  return PowerSourceFromSupplies("/sys/class/power_supply");
}

}  // namespace trovix::platform

// Whether the machine runs on its battery, for background work that should wait for mains.
//
// Asked of UPower over the system bus when it answers (it knows about docks, UPSes and
// peripherals' batteries, which it keeps apart from the machine's own); without a system bus
// (a server, a container, a minimal session) the kernel's power-supply class is read instead:
// on battery when no mains or USB supply is online and a system battery is discharging. The
// D-Bus library (GIO) is loaded only when first asked, so programs that never ask do not pay
// for loading it. A Windows port would read GetSystemPowerStatus.
//
// Thread-safe. Each call asks afresh; callers decide how often to ask.
#pragma once

#include <string>

namespace trovix::platform {

enum class PowerSource { kMains, kBattery, kUnknown };

// *via (when given) says who answered: "UPower" or "/sys/class/power_supply".
PowerSource CurrentPowerSource(std::string* via = nullptr);

// The kernel's answer from a power-supply folder laid out as /sys/class/power_supply (one
// folder per supply holding "type", "online", "status" and "scope" files). kUnknown when it
// holds no supply at all (a desktop without a battery reads as mains then).
PowerSource PowerSourceFromSupplies(const std::string& folder);

}  // namespace trovix::platform

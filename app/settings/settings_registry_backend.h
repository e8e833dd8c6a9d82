// The settings store kept in the per-user key store (registry_store.h), under one root key. A
// section is the sub-key "root\section"; values keep their type, and reading a value of another
// type than asked for answers 13, so that a value written by something else falls back to its
// default instead of being misread.
//
// Thread-safe (the key store is).
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "app/settings/settings_store.h"

namespace trovix::app {

std::unique_ptr<SettingsBackend> MakeRegistryBackend(const std::string& database,
                                                     std::string_view root);

}  // namespace trovix::app

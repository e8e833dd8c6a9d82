// The settings store kept in a settings file (trovix.ini). The whole file is read when the
// store is opened and written atomically at Commit() when something changed. Value names are
// stored with every "=" replaced by "_", since the format cannot hold "=" in a name; reading
// applies the same replacement, so such a name reads back as written.
//
// Thread-safe (one mutex around the file's model).
#pragma once

#include <memory>
#include <string>

#include "platform/atomic_file.h"
#include "app/settings/settings_store.h"

namespace trovix::app {

std::unique_ptr<SettingsBackend> MakeFileBackend(const std::string& path);

// As above, with a hook run between writing the new file and renaming it over the old one, so
// that tests can interrupt a save at its most delicate moment.
std::unique_ptr<SettingsBackend> MakeFileBackend(const std::string& path,
                                                 platform::BeforeRenameHook before_rename);

}  // namespace trovix::app

#pragma once

#include <string>

namespace orvane::AppPaths {

// Each value is computed anew from the environment on every call, and the
// folders are created (with their parents) when missing; a failure to create
// them is ignored and the path is returned all the same.

// $XDG_DATA_HOME/Orvane (default ~/.local/share/Orvane).
std::string supportDir();
// supportDir()/Avatars.
std::string avatarsDir();
// supportDir()/accounts.json.
std::string accountsFile();

// Where an account's website data lives: data under
// $XDG_DATA_HOME/Orvane/WebsiteData/<UUID>, cache under
// $XDG_CACHE_HOME/Orvane/WebsiteData/<UUID>. Not created here.
std::string websiteDataDir(const std::string& dataStoreID);
std::string websiteCacheDir(const std::string& dataStoreID);

// $XDG_CONFIG_HOME/Orvane (preferences.ini lives here).
std::string configDir();

// The user's data, cache and config homes as the XDG variables give them.
std::string dataHome();
std::string cacheHome();
std::string configHome();

} // namespace orvane::AppPaths

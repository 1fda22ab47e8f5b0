// Files that hold the user's settings and, without a Secret Service, the session: where they live
// and how they are replaced without ever leaving a half-written file behind.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace mirlo::host {

// "$XDG_CONFIG_HOME/mirlo", else "~/.config/mirlo".
std::filesystem::path configDirectory();
// "$XDG_DATA_HOME/mirlo", else "~/.local/share/mirlo".
std::filesystem::path dataDirectory();

// The file's bytes; nothing when it does not exist or cannot be read.
std::optional<std::string> readFile(const std::filesystem::path& path);

// Replaces the file atomically: a temporary file in the same directory (mode 0600) is written,
// flushed to disk and renamed over the old one, then the directory itself is flushed. The
// directory is created (mode 0700) when missing. False when any step fails; the old file is then
// untouched.
bool replaceFileAtomically(const std::filesystem::path& path, const std::string& bytes);

// Moves an unreadable file out of the way, next to where it was, under a name that says so and
// does not overwrite an earlier one. Returns where it went.
std::optional<std::filesystem::path> keepAside(const std::filesystem::path& path);

}  // namespace mirlo::host

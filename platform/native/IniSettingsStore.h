#pragma once
// The native settings store: one INI file per application name, under
// $XDG_CONFIG_HOME/corvid/ (or ~/.config/corvid/).
//
// What the files hold, how values are escaped and how an application's file is named is the
// pure text side (platform/native/IniText.h); this side keeps the files.
//
// Writes are read-modify-write under an exclusive flock on "<file>.lock", and replace the
// file atomically (a temporary file in the same directory, fsync, rename, fsync of the
// directory): concurrent writers in any process never lose each other's keys, and a writer
// killed at any point leaves the old or the new file, never a torn one. Reads take no lock.
// A file that cannot be read, is binary (holds a NUL byte) or is oversized reads as holding
// no values; a write moves such a corrupt file aside to "<file>.corrupt" and starts afresh,
// but refuses to replace a file it cannot read at all.
//
// Threads: any thread; each call opens its own files.

#include "platform/Services.h"

#include <string>

namespace corvid::native {

class IniSettingsStore : public platform::SettingsStore {
public:
    // `baseDirectory` empty: the per-user default (see defaultBaseDirectory()).
    explicit IniSettingsStore(std::string baseDirectory = {});

    std::string read(const std::string& application, const std::string& section,
                     const std::string& key, const std::string& defaultValue) override;
    platform::Status write(const std::string& application, const std::string& section,
                           const std::string& key, const std::string& value) override;

    const std::string& baseDirectory() const { return base_; }
    std::string filePath(const std::string& application) const;

    // "$XDG_CONFIG_HOME/corvid" when that is an absolute path, else "$HOME/.config/corvid"
    // (the password database's home when HOME is unset); empty when there is no home.
    static std::string defaultBaseDirectory();
    // The file name of an application's values, "<safe name>.ini".
    static std::string fileNameFor(const std::string& application);

private:
    std::string base_;
};

} // namespace corvid::native

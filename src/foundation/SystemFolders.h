#pragma once

#include <string>

// The per-user folders of the product family. Every result ends in "/". Nothing is created.

// $HOME, or the password database's home folder when HOME is unset.
std::string homeFolder();

// $XDG_CONFIG_HOME/Zorvane/ (default ~/.config): preferences and the family's shared files.
std::string preferencesFolder();

// $XDG_DATA_HOME/Zorvane/<name>/ (default ~/.local/share).
std::string familyDataFolder(const std::string& name);

// The user's documents folder: $XDG_DOCUMENTS_DIR, else XDG_DOCUMENTS_DIR in user-dirs.dirs of
// the configuration folder, else ~/Documents.
std::string documentsFolder();

// <documents>/Zorvane/Presets/<productName>/; used when the user has not chosen another folder.
std::string defaultPresetFolder(const std::string& productName);

// The documents folder named in the text of a user-dirs.dirs file, with "$HOME" expanded; empty
// when the file does not name one.
std::string documentsFolderFromUserDirs(const std::string& text, const std::string& home);

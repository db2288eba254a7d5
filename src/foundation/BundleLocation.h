#pragma once

#include <string>

// Where the plug-in bundle keeps its resources: "<bundle>/Contents/Resources/". The shared library
// sits in "<bundle>/Contents/x86_64-linux/", so the folder is found from the library's own path.

// The resource folder of the bundle whose shared library (or program) contains this code, ending
// in "/". An explicitly set folder takes precedence.
std::string bundleResourceFolder();

// Replaces the located folder, e.g. for tests or for a host-given module path; an empty text
// returns to locating it from the library's path.
void setBundleResourceFolder(const std::string& folder);

// "<dir>/Contents/x86_64-linux/Ondrel 4.so" -> "<dir>/Contents/Resources/".
std::string resourceFolderForModulePath(const std::string& modulePath);

#pragma once

#include "foundation/BinaryStreams.h"

#include <stdexcept>
#include <string>

// Raised when a bundle resource cannot be opened.
class EResource : public std::runtime_error {
public:
    explicit EResource(const std::string& name);
};

// Reads a file from the bundle's resource folder by name (which may contain sub-folders).
class BinaryResourceReader : public BinaryFileReader {
public:
    // Throws EResource when the resource does not exist or cannot be opened.
    explicit BinaryResourceReader(const std::string& name);
};

#include "foundation/BinaryResourceReader.h"

#include "foundation/BundleLocation.h"

namespace {

std::string notFoundMessage(const std::string& name) {
    return name.empty() ? std::string("Resource not found") : "Resource '" + name + "' not found\n";
}

} // namespace

EResource::EResource(const std::string& name) : std::runtime_error(notFoundMessage(name)) {}

BinaryResourceReader::BinaryResourceReader(const std::string& name)
    : BinaryFileReader(bundleResourceFolder() + name) {
    if (name.empty() || !isOpen())
        throw EResource(name);
}

#include "foundation/AtomicFile.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

bool writeAll(int descriptor, std::string_view bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t result = write(descriptor, bytes.data() + written, bytes.size() - written);
        if (result < 0)
            return false;
        written += static_cast<std::size_t>(result);
    }
    return true;
}

} // namespace

bool writeFileAtomically(const std::string& path, std::string_view bytes) {
    std::string temporary = path + ".XXXXXX";
    const int descriptor = mkstemp(temporary.data());
    if (descriptor < 0)
        return false;
    const bool written = writeAll(descriptor, bytes) && fsync(descriptor) == 0;
    const bool closed = close(descriptor) == 0;
    if (written && closed && std::rename(temporary.c_str(), path.c_str()) == 0)
        return true;
    unlink(temporary.c_str());
    return false;
}

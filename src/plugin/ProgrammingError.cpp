#include "plugin/ProgrammingError.h"

#include <cstdio>
#include <cstdlib>

void failProgrammingError(const char* message) {
    std::fprintf(stderr, "programming error: %s\n", message);
    std::abort();
}

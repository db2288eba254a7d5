#pragma once

// Stops the program when code breaks an invariant that no input can cause (a parameter range
// whose default lies outside it, an item index past its list).
[[noreturn]] void failProgrammingError(const char* message);

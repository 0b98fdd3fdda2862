// Shared libraries, and what they export by name.
#pragma once

namespace scripted {

void* open_library(const char* file);             // null when it cannot be loaded
void* symbol_of(void* library, const char* name); // null for what it does not export

} // namespace scripted

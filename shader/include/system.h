/*
 * The operating system as far as this library needs it: the loader's symbol lookup and waiting on a handle
 * of the host. One source file for each system.
 */
#pragma once

#include <cstdint>

namespace orl::system {

using EntryPoint = void (*)();

/* Looks an exported function up by name; null when the module has no such name. A null module means the
   whole process on POSIX and the executable on Windows. */
EntryPoint find_symbol(void* module, const char* name) noexcept;

/* Loads the library of that base name, such as "architectural": with the system's suffix, from where the
   system looks for libraries, or the one that is loaded already. Null when there is none. */
void* load_library(const char* base_name) noexcept;

/* Gives a loaded library back; nothing for null. */
void unload_library(void* library) noexcept;

/* Code of the last failure, as the system numbers them. */
int last_error() noexcept;

/* Whether handles of the host mean anything here; where not, there is nothing to wait for. */
extern const bool host_handles;

/* Waits on a handle of the host for at most so many milliseconds; true when the time ran out. */
bool wait_times_out(std::uint64_t handle, unsigned milliseconds) noexcept;

} // namespace orl::system

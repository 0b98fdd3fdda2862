// A loaded shader module: its functions by name and all names that it shows.
#pragma once

#include <set>
#include <string>

// Opens the module; null when that fails.
void* open_module(const char* file);

// Address of an exported symbol, null when there is none.
void* find_in_module(void* module, const char* name);

// Every symbol that the module shows to others, read from its file or image rather than asked by name.
std::set<std::string> exports_of(const char* file, void* module);

// Shared libraries, the running program's path and folder listings, for the plug-in loader.
#pragma once

#include <string>
#include <vector>

namespace zq {
namespace platform {

// Opens the library at exactly `path`, resolving all its symbols now. Null on failure, with
// the system's reason in o_error. An empty path fails rather than naming the program itself,
// and an ELF file cut off before its segments end fails ("file too short") rather than
// crashing the process with SIGBUS.
void* openLibrary(const std::wstring& path, std::string& o_error);
// Drops one reference to the library; the system's result is of no use to callers.
void closeLibrary(void* library);
// The address of the exported symbol `name` in `library`; null on failure, with the reason in
// o_error. A null `library` fails.
void* findSymbol(void* library, const std::string& name, std::string& o_error);

// The system's text for an errno value.
std::string errorText(int code);

// The full path of the running program's executable. False with errno's value in o_error
// when the system can't tell.
bool executablePath(std::wstring& o_path, int& o_error);

// Full paths ("directory/name") of the entries directly in `directory` whose names end in
// `suffix`, sorted by name. Entries are not told apart further: a folder can be listed too.
// False with errno's value in o_error when the folder can't be read.
bool listFolder(const std::wstring& directory, const std::wstring& suffix, std::vector<std::wstring>& o_paths,
                int& o_error);

// A file-system name (UTF-8) as wide text; bytes that are no valid UTF-8 become U+FFFD.
std::wstring widePath(const std::string& name);

}  // namespace platform
}  // namespace zq

// Internal to the POSIX layer: drive-letter mapping and error translation,
// shared by its source files.
#pragma once

#include <cstdint>
#include <string>

namespace QzOs::posix {

// Maps a Windows-form path to a POSIX path through QZ_DRIVES; returns a
// Win32 error number (0 on success).
uint32_t MapPath(const char* winPath, std::string* out);
// errno to the Win32 error number Windows would give.
uint32_t MapErrno(int e);
// As MapErrno, but ENOENT becomes "path not found" when the parent is missing.
uint32_t MapPathErrno(int e, const std::string& path);

}  // namespace QzOs::posix

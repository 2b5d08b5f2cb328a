#pragma once

#include <stdint.h>

/// Facts about one path; symbolic links are followed. Any thread.

/// Modification time, seconds since the epoch as a signed 32-bit value; -1 when it cannot be told.
int FileAge(const char* path);
/// Size in bytes; -1 when it cannot be told.
int64_t FileSize(const char* path);
/// True only for an existing regular file.
bool FileExists(const char* path);
/// True only for an existing folder.
bool DirectoryExists(const char* path);
/// Unlinks; true on success.
bool DeleteFile(const char* path);

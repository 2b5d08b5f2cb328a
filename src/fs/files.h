#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "core/owned.h"

/// Files: facts about a path, reading, fresh ones. Any thread.

/// Facts about one path; symbolic links are followed.
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

/// Reading of files that may be anything: nothing here waits for a peer at the other end.

/// Bytes that are read at a time where the size is of no consequence.
inline constexpr size_t kReadBytes = 256 * 1024;

/// Opens for reading; none with errno set when that fails.
TFd OpenForReading(const char* path);
/// Whether `fd` is a regular file; `facts` are its facts then.
bool IsRegularFile(int fd, struct stat& facts);
/// Reads until `count` bytes are there or the file ends.
/// @return bytes read, or -1 with errno set
ssize_t ReadFully(int fd, char* buffer, size_t count);
/// One read from `offset`, which no signal interrupts.
/// @return bytes read, 0 at the end of the file, or -1 with errno set
ssize_t ReadAt(int fd, char* buffer, size_t count, int64_t offset);

/// A new, empty file in place of whatever has this name, never through a link; read and write. None
/// with errno set when that fails.
/// @param mode  permissions, less the umask
TFd CreateFresh(const char* path, mode_t mode = 0600);

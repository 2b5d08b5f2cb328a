#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "core/owned.h"

/// Facts about one path; symbolic links are followed. Any thread may call what is here.
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

/// Bytes that are read at a time where the size is of no consequence.
inline constexpr size_t kReadBytes = 256 * 1024;

/// Opens for reading, close-on-exec, without waiting for a peer at the other end; none with errno
/// set on a failure.
TFd OpenForReading(const char* path);
/// Whether `fd` is a regular file; `facts` are its facts then.
bool IsRegularFile(int fd, struct stat& facts);
/// Reads until `count` bytes are there or the file ends. Returns the bytes read, 0 at the end, or
/// -1 with errno set.
ssize_t ReadFully(int fd, char* buffer, size_t count);
/// The same by one read from `offset`, which may give fewer.
ssize_t ReadAt(int fd, char* buffer, size_t count, int64_t offset);
/// Writes all of the bytes. False with errno set on a failure.
bool WriteFully(int fd, const char* bytes, size_t count);

/// A new, empty file in place of whatever has this name, never through a link, to be read and
/// written, with the permissions of `mode` less the umask. None with errno set on a failure.
TFd CreateFresh(const char* path, mode_t mode = 0600);

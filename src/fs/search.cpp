#include "fs/search.h"

#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/paths.h"

namespace {

bool IsHidden(const char* name) { return name[0] == '.' && !IsDotName(name); }

/// Attribute bits that the listing alone tells; the type may be missing from it.
int AttributesFromListing(const dirent& entry) {
  const int hidden = IsHidden(entry.d_name) ? AttrHidden : 0;
  switch (entry.d_type) {
    case DT_LNK:
      return hidden | AttrSystem | AttrSymLink;
    case DT_DIR:
      return hidden | AttrDirectory;
    case DT_REG:
    case DT_UNKNOWN:
      return hidden;
    default:
      return hidden | AttrSystem;
  }
}

int AttributesFromMode(mode_t mode) {
  if (S_ISDIR(mode)) return AttrDirectory;
  if (S_ISREG(mode)) return 0;
  return S_ISLNK(mode) ? AttrSystem | AttrSymLink : AttrSystem;
}

/// Whether the entry's full name is one that the system accepts.
bool NameFits(const TSearchRec& rec, const char* name) {
  const int room = PATH_MAX - 1 - rec.SearchDir.Length();
  return room >= NAME_MAX || static_cast<int>(strlen(name)) <= room;
}

bool NameMatches(const TSearchRec& rec, const char* name) {
  return rec.SearchMask == "*" || fnmatch(rec.SearchMask.CStr(), name, 0) == 0;
}

/// Whether the entry, as far as the listing tells, is a folder that needs not match.
bool MayBeSpared(const dirent& entry, const TSearchRec& rec) {
  return rec.Folders == TFolders::kAll && (entry.d_type == DT_DIR || entry.d_type == DT_UNKNOWN);
}

/// Whether the entry qualifies; its facts are in rec then. Cheap reasons to refuse come first:
/// folders hold 100,000 entries and more.
bool TakeEntry(const dirent& entry, TSearchRec& rec) {
  const auto excluded = [&rec](int attributes) {
    return (static_cast<unsigned>(attributes) & rec.ExcludeMask) != 0;
  };
  const char* name = entry.d_name;
  if (excluded(AttributesFromListing(entry))) return false;
  if (!NameFits(rec, name)) return false;
  const bool matches = NameMatches(rec, name);
  if (!matches && !MayBeSpared(entry, rec)) return false;
  const int folder = dirfd(rec.DirStream);
  struct stat facts;
  if (fstatat(folder, name, &facts, AT_SYMLINK_NOFOLLOW) != 0) return false;
  int attributes = AttributesFromMode(facts.st_mode) | (IsHidden(name) ? AttrHidden : 0);
  if (excluded(attributes) || (!matches && !S_ISDIR(facts.st_mode))) return false;
  const bool seen = rec.ReadOnly == TReadOnly::kSeen || excluded(AttrReadOnly);
  if (seen && faccessat(folder, name, W_OK, 0) != 0) attributes |= AttrReadOnly;
  if (excluded(attributes)) return false;
  rec.ByteSize = facts.st_size;
  rec.Attributes = attributes;
  rec.ModeBits = facts.st_mode;
  rec.ModifiedTime = facts.st_mtime;
  const size_t length = strnlen(name, sizeof rec.EntryName - 1);
  memcpy(rec.EntryName, name, length);
  rec.EntryName[length] = 0;
  return true;
}

int FindMatchingFile(TSearchRec& rec) {
  while (const dirent* entry = readdir(rec.DirStream)) {
    if (TakeEntry(*entry, rec)) return 0;
  }
  return -1;
}

}  // namespace

int FindFirst(const char* path, int attr, TSearchRec& rec) {
  const String whole(path);
  return FindFirst(ExtractFilePath(whole), ExtractFileName(whole), attr, rec);
}

int FindFirst(const String& dir, const String& mask, int attr, TSearchRec& rec, TReadOnly readOnly,
              TFolders folders) {
  rec.ExcludeMask = ~static_cast<unsigned>(attr & AttrAny);
  rec.ReadOnly = readOnly;
  rec.Folders = folders;
  rec.SearchDir = IncludeTrailingPathDelimiter(dir.Empty() ? GetCurrentDir() : dir);
  rec.SearchMask = mask;
  rec.DirStream = opendir(rec.SearchDir.CStr());
  if (rec.DirStream == nullptr) return errno;
  const int result = FindMatchingFile(rec);
  if (result != 0) FindClose(rec);
  return result;
}

int FindNext(TSearchRec& rec) { return rec.DirStream != nullptr ? FindMatchingFile(rec) : -1; }

void FindClose(TSearchRec& rec) {
  if (rec.DirStream != nullptr) closedir(rec.DirStream);
  rec.DirStream = nullptr;
}

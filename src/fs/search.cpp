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

/// Attribute bits by name and type, which a listing may leave out (0).
int AttributesOf(const char* name, mode_t mode) {
  const int hidden = name[0] == '.' && !IsDotName(name) ? AttrHidden : 0;
  if (S_ISDIR(mode)) return hidden | AttrDirectory;
  if (S_ISREG(mode) || mode == 0) return hidden;
  return hidden | AttrSystem | (S_ISLNK(mode) ? AttrSymLink : 0);
}

/// Whether the entry's full name is one that the system accepts.
bool NameFits(const TSearchRec& rec, const char* name) {
  const int room = PATH_MAX - 1 - rec.SearchDir.Length();
  return room >= NAME_MAX || static_cast<int>(strlen(name)) <= room;
}

bool NameMatches(const TSearchRec& rec, const char* name) {
  return rec.SearchMask == "*" || fnmatch(rec.SearchMask.CStr(), name, 0) == 0;
}

/// Whether the entry qualifies; its facts are in rec then. Cheap reasons to refuse come first:
/// folders hold 100,000 entries and more. Deliberate: the type that the listing tells is looked at
/// before the file, which spares a call for each that is refused.
bool TakeEntry(const dirent& entry, TSearchRec& rec) {
  const auto excluded = [&rec](int attributes) {
    return (static_cast<unsigned>(attributes) & rec.ExcludeMask) != 0;
  };
  const char* name = entry.d_name;
  if (excluded(AttributesOf(name, DTTOIF(mode_t{entry.d_type}))) || !NameFits(rec, name))
    return false;
  const bool matches = NameMatches(rec, name);
  const bool mayBeFolder = entry.d_type == DT_DIR || entry.d_type == DT_UNKNOWN;
  if (!matches && (rec.Folders == TFolders::kMasked || !mayBeFolder)) return false;
  const int folder = dirfd(rec.DirStream);
  struct stat facts = {};
  facts.st_mode = DTTOIF(mode_t{entry.d_type});
  const bool told = rec.Facts == TFacts::kKind && entry.d_type != DT_UNKNOWN;
  if (!told && fstatat(folder, name, &facts, AT_SYMLINK_NOFOLLOW) != 0) return false;
  int attributes = AttributesOf(name, facts.st_mode);
  if (excluded(attributes) || (!matches && !S_ISDIR(facts.st_mode))) return false;
  const bool seen = rec.Facts == TFacts::kAll || excluded(AttrReadOnly);
  if (seen && faccessat(folder, name, W_OK, 0) != 0) attributes |= AttrReadOnly;
  if (excluded(attributes)) return false;
  rec.ByteSize = facts.st_size;
  rec.Attributes = attributes;
  rec.ModeBits = facts.st_mode;
  rec.ModifiedTime = facts.st_mtime;
  static_assert(sizeof rec.EntryName == sizeof entry.d_name);
  memcpy(rec.EntryName, name, strlen(name) + 1);
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

int FindFirst(const String& dir, const String& mask, int attr, TSearchRec& rec, TFacts facts,
              TFolders folders) {
  rec.ExcludeMask = ~static_cast<unsigned>(attr & AttrAny);
  rec.Facts = facts;
  rec.Folders = folders;
  rec.SearchDir = IncludeTrailingPathDelimiter(dir.Empty() ? GetCurrentDir() : dir);
  rec.SearchMask = mask;
  rec.DirStream = opendir(rec.SearchDir.CStr());
  if (rec.DirStream == nullptr) return errno;
  // Where no entry may be looked at none counts, though the listing tells its kind.
  struct stat own;
  const bool told = facts != TFacts::kKind || fstatat(dirfd(rec.DirStream), ".", &own, 0) == 0;
  const int result = told ? FindMatchingFile(rec) : -1;
  if (result != 0) FindClose(rec);
  return result;
}

int FindNext(TSearchRec& rec) { return rec.DirStream != nullptr ? FindMatchingFile(rec) : -1; }

void FindClose(TSearchRec& rec) {
  if (rec.DirStream != nullptr) closedir(rec.DirStream);
  rec.DirStream = nullptr;
}

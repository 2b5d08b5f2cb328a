#pragma once

#include <dirent.h>
#include <stdint.h>

#include "core/wqstring.h"

/// Attribute bits of a folder entry.
inline constexpr int AttrReadOnly = 0x01;   ///< not writable for this process
inline constexpr int AttrHidden = 0x02;     ///< name starts with '.', except "." and ".."
inline constexpr int AttrSystem = 0x04;     ///< neither a folder nor a regular file
inline constexpr int AttrDirectory = 0x10;  ///< a folder
inline constexpr int AttrSymLink = 0x40;    ///< a symbolic link
inline constexpr int AttrAny = 0x3F;        ///< what a search may ask for

/// What a search tells of its entries. One that does not ask for AttrReadOnly looks it up all the
/// same.
enum class TFacts {
  kAll,
  kNoReadOnly,  ///< all but AttrReadOnly, which costs a system call each
  kKind,        ///< name and attributes but AttrReadOnly, by the listing where it tells the type
};

/// Which folders a search finds: those whose name matches the mask, or all of them.
enum class TFolders { kMasked, kAll };

inline bool IsDotName(const char* name) {
  return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

/// One found entry and the state of its search, which FindClose ends; a copy shares the open
/// stream, and only one of the copies may go on with it. One thread at a time.
struct TSearchRec {
  int64_t ModifiedTime = 0;  ///< seconds since the epoch
  int64_t ByteSize = 0;      ///< bytes
  int Attributes = 0;
  char EntryName[256] = {};
  unsigned ModeBits = 0;
  DIR* DirStream = nullptr;  ///< null when closed
  unsigned ExcludeMask = 0;  ///< attribute bits that disqualify an entry
  String SearchDir;          ///< ends in '/'
  String SearchMask;
  TFacts Facts = TFacts::kAll;
  TFolders Folders = TFolders::kMasked;
};

/// Starts a search in `dir` (empty: the working directory) for entries whose name matches `mask`
/// (fnmatch without flags) and whose attribute bits were all asked for in `attr`.
/// Deliberate: symbolic links are never reported, whatever `attr` asks for, so that no walk leaves
/// its tree.
/// @return 0 with the first entry in rec; -1, the stream closed, for none; errno when the folder
///         cannot be opened
int FindFirst(const String& dir, const String& mask, int attr, TSearchRec& rec,
              TFacts facts = TFacts::kAll, TFolders folders = TFolders::kMasked);
/// The same with folder and mask in one path. Not called by the agent itself.
int FindFirst(const char* path, int attr, TSearchRec& rec);
/// The next entry: 0 found, -1 no more (the stream stays open).
int FindNext(TSearchRec& rec);
/// Closes the search; harmless when it is closed.
void FindClose(TSearchRec& rec);

/// Closes a search when it goes out of scope.
class TSearchCloser {
 public:
  explicit TSearchCloser(TSearchRec& rec) : rec_(rec) {}
  ~TSearchCloser() { FindClose(rec_); }
  TSearchCloser(const TSearchCloser&) = delete;
  TSearchCloser& operator=(const TSearchCloser&) = delete;

 private:
  TSearchRec& rec_;
};

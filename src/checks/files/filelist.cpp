#include "checks/files/filelist.h"

#include <string.h>
#include <time.h>

#include "checks/files/filetests.h"
#include "checks/gate.h"
#include "config/settings.h"
#include "fs/files.h"
#include "fs/paths.h"

namespace {

/// Any check that works on files lets the server look for them.
bool MayBrowse(const TQovSettings& settings) {
  for (const int enabled : {settings.foldersize, settings.countfiles, settings.fileexists,
                            settings.filecrc, settings.comparefiles, settings.textlog}) {
    if (enabled != 0) return true;
  }
  return false;
}

/// The folder to list: a path that is none is cut back to its folder part.
String ListedFolder(String path) {
  if (path.Empty()) return "/";
  if (path[path.Length()] != '/' && !DirectoryExists(path.CStr())) path = ExtractFilePath(path);
  return IncludeTrailingPathDelimiter(path);
}

/// The entries of one listing and their number.
class TEntryList {
 public:
  explicit TEntryList(const VxRequest& params)
      : folder_(ListedFolder(params.GetValue(1))),
        withSize_(Asked(params, 7)),
        withChangeTime_(Asked(params, 8)),
        withTime_(Asked(params, 9)) {}

  /// Deliberate: "." is left out of the folders, ".." is not.
  void Add(const String& mask, int attributes, bool folders) {
    TSearchRec rec;
    const TSearchCloser closer(rec);
    for (int r = FindFirst(folder_, mask, attributes, rec); r == 0; r = FindNext(rec)) {
      if (((rec.Attributes & AttrDirectory) != 0) != folders) continue;
      if (folders && strcmp(rec.EntryName, ".") == 0) continue;
      AddFileStr(entries_, folder_, rec, withSize_, withChangeTime_, withTime_);
      ++count_;
    }
  }

  void AddTo(QovReply& reply) const {
    reply.AddStringParam(folder_, 1);
    reply.AddIntParam(count_);
    reply.AddIntParam(2 + withSize_ + withChangeTime_ + withTime_);
    reply += entries_;
  }

 private:
  String folder_;
  int withSize_;
  int withChangeTime_;
  int withTime_;
  QovReply entries_;
  int count_ = 0;
};

}  // namespace

void AddFileStr(QovReply& reply, const String& folder, TSearchRec rec, int withSize,
                int withChangeTime, int withTime) {
  reply.AddStringParam(String(rec.EntryName), 1);
  reply.AddIntParam(rec.Attributes);
  if (withSize != 0) reply.AddIntParam(static_cast<double>(rec.ByteSize));
  if (withChangeTime != 0) {
    long sizeBytes;
    long changed = 0;
    long modified;
    GetFileInfo((folder + rec.EntryName).CStr(), sizeBytes, changed, modified);
    reply.AddTimeParam(time_t{changed});
  }
  if (withTime != 0) reply.AddTimeParam(time_t{rec.ModifiedTime});
}

void ProcessInfo_GetFileList(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(MayBrowse(*CurrentSettings()), reply)) return;
  String mask = params.GetValue(2);
  if (mask.Empty()) mask = "*";
  int attributes = AttrAny;
  if (!Asked(params, 5)) attributes &= ~AttrHidden;
  if (!Asked(params, 6)) attributes &= ~AttrSystem;
  TEntryList list(params);
  if (Asked(params, 3)) list.Add("*", attributes, true);
  if (Asked(params, 4)) list.Add(mask, attributes, false);
  reply.SetResult(kResultDone);
  list.AddTo(reply);
}

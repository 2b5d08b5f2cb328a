#include "checks/files/filetests.h"

#include <stdint.h>
#include <sys/stat.h>
#include <time.h>

#include "checks/files/filecontent.h"
#include "checks/files/pathmacros.h"
#include "checks/gate.h"
#include "config/settings.h"
#include "fs/files.h"

namespace {

constexpr char kNoSuchFile[] = "File doesn`t exist";

/// Answers with a result that is negative for an error.
void AddOutcome(double result, QovReply& reply) {
  if (result < 0) return Refuse(reply, "I/O Error");
  reply.SetResult(kResultDone).AddBoolParam(result != 0);
}

void CompareTwoFiles(const VxRequest& params, const String& first, QovReply& reply) {
  const String second = GetPath(params, 3, 13);
  if (!FileExists(second.CStr())) return Refuse(reply, kNoSuchFile);
  bool equal = !Asked(params, 4) || FileAge(first.CStr()) == FileAge(second.CStr());
  if (equal && Asked(params, 5)) equal = FileSize(first.CStr()) == FileSize(second.CStr());
  const bool read = equal && Asked(params, 6);
  AddOutcome(read ? CompareFiles(first.CStr(), second.CStr()) : equal, reply);
}

void SearchText(const VxRequest& params, const String& file, QovReply& reply) {
  const int caseSensitive = Asked(params, 4);
  AddOutcome(FindStrInFile(file.CStr(), params.GetText(3), caseSensitive, Asked(params, 5)), reply);
}

void SearchFile(const VxRequest& params, const String& file, QovReply& reply) {
  constexpr int64_t kMaxPatternBytes = 8 * 1024 * 1024;
  const String pattern = params.GetValue(3);
  if (!FileExists(pattern.CStr())) return Refuse(reply, kNoSuchFile);
  if (FileSize(pattern.CStr()) > kMaxPatternBytes) {
    return Refuse(reply, "The size of the second file cannot exceed 8Mb");
  }
  AddOutcome(FindFileInFile(file.CStr(), pattern.CStr()), reply);
}

struct TCompareMode {
  const char* name;  // compared as text
  int macroFlag;     // parameter that asks for macros in the first file
  void (*run)(const VxRequest& params, const String& file, QovReply& reply);
};
constexpr TCompareMode kCompareModes[] = {
    {"1", 12, CompareTwoFiles},
    {"2", 9, SearchText},
    {"3", 11, SearchFile},
    {"4", 12, nullptr},  // takes its file as the others do, then is refused
};

}  // namespace

int GetFileInfo(const char* path, long& size, long& ctime, long& mtime) {
  struct stat facts;
  if (path == nullptr || *path == 0 || lstat(path, &facts) != 0) return 0;
  size = facts.st_size;
  ctime = facts.st_ctime;
  mtime = facts.st_mtime;
  return 1;
}

void ProcessTest_FileExists(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->fileexists, reply)) return;
  String path = GetPath(params, 1, 7);
  long sizeBytes = 0;
  long changed = 0;
  long modified = 0;
  if (GetFileInfo(path.CStr(), sizeBytes, changed, modified) == 0) {
    path = GetFirstMatchedFile(path);
    if (GetFileInfo(path.CStr(), sizeBytes, changed, modified) == 0) {
      return Refuse(reply, "no such file or acess denied");
    }
  }
  reply.SetResult(kResultDone);
  reply.AddIntParam(static_cast<double>(sizeBytes));
  reply.AddTimeParam(time_t{changed});
  reply.AddTimeParam(time_t{modified});
  reply.AddStringParam(path, 1);
  reply.AddStringParam("min", 0);
  reply.AddIntParam(Saturated((time(nullptr) - modified) / 60));
}

void ProcessTest_FileCompare(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->comparefiles, reply)) return;
  const TCompareMode* mode = nullptr;
  for (const TCompareMode& row : kCompareModes) {
    if (params.GetValue(1) == row.name) mode = &row;
  }
  const String file = mode != nullptr ? GetPath(params, 2, mode->macroFlag) : params.GetValue(2);
  if (!FileExists(file.CStr())) return Refuse(reply, kNoSuchFile);
  if (mode == nullptr || mode->run == nullptr) return RefuseParameter(reply);
  mode->run(params, file, reply);
}

void ProcessTest_FileCRC(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->filecrc, reply)) return;
  unsigned int crc = 0;
  String error;
  if (GetFileCRC(params.GetValue(1).CStr(), &crc, error) == 0) return Refuse(reply, error.CStr());
  reply.SetResult(kResultDone).AddIntParam(static_cast<double>(crc));
}

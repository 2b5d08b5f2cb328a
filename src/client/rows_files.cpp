#include <math.h>

#include "client/rows.h"

static double Used(const TNumbers& disk) { return disk[0] - disk[1]; }
/// As df counts it, of what ordinary users can have; two decimals.
static double UsedPercent(const TNumbers& disk) {
  const double reachable = Used(disk) + disk[2];
  return reachable > 0 ? round(10000 * Used(disk) / reachable) / 100 : 0;
}

static TCommand Disk() {
  return {.name = "disk",
          .agent = "TEST-UNC",
          .summary = "size and free space of the file system that holds a path",
          .params = {Argument(1, "PATH", "path on the agent's host", "/")},
          .fields = {{"total", fieldBytes}, {"free", fieldBytes}, {"avail", fieldBytes}},
          .enabledBy = "UNC",
          .metrics = {{"used", "B", Used, 0},
                      {"free", "B", [](const TNumbers& disk) { return disk[1]; }, 0},
                      {"avail", "B", [](const TNumbers& disk) { return disk[2]; }, 0},
                      {"used_pct", "%", UsedPercent}}};
}

static TCommand FolderSize() {
  return {.name = "folder-size",
          .agent = "TEST-FolderSize",
          .summary = "bytes in the files of a folder",
          .params = {Argument(1, "FOLDER", "folder, or folder and file mask"),
                     Flag(2, "--recurse", "count the subfolders too"), Macros(8)},
          .fields = {{"size", fieldBytes}},
          .enabledBy = "Folder Size",
          .metrics = {{"size", "B", First}}};
}

static TCommand FileExists() {
  return {.name = "file",
          .agent = "TEST-FileExists",
          .summary = "size, times and age of a file",
          .params = {Argument(1, "FILE", "file, or file mask (the first match counts)"), Macros(7)},
          .fields = {{"size", fieldBytes},
                     {"changed", fieldTime},
                     {"modified", fieldTime},
                     {"file", fieldText},
                     {"unit", fieldSkip},
                     {"age", fieldMinutes}},
          .enabledBy = "File Availability",
          .metrics = {{"age", "s", [](const TNumbers& file) { return 60 * file[5]; }},
                      {"size", "B", First}}};
}

static TCommand CountFiles() {
  return {.name = "count-files",
          .agent = "TEST-CountFiles",
          .summary = "number of files in a folder",
          .params = {Argument(1, "FOLDER", "folder on the agent's host"),
                     Argument(2, "MASK", "file mask", "*"),
                     Flag(3, "--recurse", "count in the subfolders too"),
                     {.position = 4,
                      .form = paramChoice,
                      .option = "--count",
                      .preset = "all",
                      .help = "what to count: all, older, newer, bigger, smaller, subfolders",
                      .words = "all|older|newer|bigger|smaller|subfolders"},
                     Whole(5, "--limit", "0", "minutes (older, newer) or bytes (bigger, smaller)"),
                     Macros(11)},
          .fields = {{"count", fieldCount}},
          .enabledBy = "Count Files",
          .metrics = {{"count", "", First}}};
}

static TCommand CompareFiles() {
  return {.name = "compare",
          .agent = "TEST-FileCompare",
          .summary = "whether two files are the same",
          .params = {Fixed(1, "1"), Argument(2, "FILE", "first file"),
                     Argument(3, "OTHER", "second file"),
                     Flag(4, "--time", "compare the modification times"),
                     Flag(5, "--size", "compare the sizes"),
                     Flag(6, "--contents", "compare the bytes, as far as the shorter file goes"),
                     Macros(12),
                     Flag(13, "--other-macros", "expand %newestfile% and kin in the second path")},
          .fields = {{"equal", fieldBool}},
          .enabledBy = "File Compare",
          .verdict = verdictTrue};
}

static TCommand FindText() {
  return {
      .name = "find-text",
      .agent = "TEST-FileCompare",
      .summary = "whether a file holds a text",
      .params = {Fixed(1, "2"), Argument(2, "FILE", "file to search"),
                 Argument(3, "TEXT", "text to find"),
                 Flag(4, "--case", "tell capital letters from small ones"),
                 Flag(5, "--whole-word", "neither neighbour may be a letter or digit"), Macros(9)},
      .fields = {{"found", fieldBool}},
      .enabledBy = "File Compare",
      .verdict = verdictTrue};
}

static TCommand FindFile() {
  return {
      .name = "find-file",
      .agent = "TEST-FileCompare",
      .summary = "whether a file holds the contents of another",
      .params = {Fixed(1, "3"), Argument(2, "FILE", "file to search"),
                 Argument(3, "PATTERN", "file whose contents to find, 8 MiB at most"), Macros(11)},
      .fields = {{"found", fieldBool}},
      .enabledBy = "File Compare",
      .verdict = verdictTrue};
}

static TCommand Checksum() {
  return {.name = "checksum",
          .agent = "TEST-FileCRC",
          .summary = "CRC-32 of a file, without the final complement",
          .params = {Argument(1, "FILE", "file on the agent's host")},
          .fields = {{"checksum", fieldChecksum}},
          .enabledBy = "File Integrity",
          .verdict = verdictChecksum};
}

static std::vector<TParam> LogState(int first) {
  return {Whole(first, "--position", "0", "byte offset to read from"),
          Whole(first + 1, "--size", "0", "file size at the last check; 0 starts a watch"),
          Whole(first + 2, "--time", "0", "file time at the last check")};
}

static TParam LogFile() { return Argument(1, "FILE", "log file, or file mask (the first match)"); }
static TParam ScanAll(int position) {
  return Flag(position, "--scan-all", "read to the end, report the last match");
}

static TCommand TextLog() {
  TCommand row = {.name = "text-log",
                  .agent = "TEST-TextLog",
                  .summary = "new lines of a log that match a text or expression",
                  .params = LogState(3),
                  .fields = {{"match", fieldCount},
                             {"line", fieldLines},
                             {"more", fieldBool},
                             {"position", fieldBytes},
                             {"size", fieldBytes},
                             {"time", fieldCount},
                             {"current_size", fieldBytes}},
                  .enabledBy = "Text Log",
                  .metrics = {{"matches", "", First}},
                  .stateParam = 3};
  const TParam rest[] = {
      LogFile(),
      {.position = 2,
       .form = paramData,
       .option = "--find",
       .preset = nullptr,
       .help = "text to find"},
      Flag(6, "--expression", "--find is an expression: 'a' and not ('b' or 'c')"),
      ScanAll(7),
      Flag(8, "--case", "tell capital letters from small ones"),
      Flag(9, "--whole-word", "neither neighbour may be a letter or digit")};
  row.params.insert(row.params.begin(), std::begin(rest), std::end(rest));
  return row;
}

static TCommand TextLog2() {
  TCommand row = TextLog();
  row.name = "text-log2";
  row.agent = "TEST-TextLog2";
  row.summary = "new lines of a log that match one of two filters";
  row.fields.push_back({"first_filter", fieldBool});
  row.fields.push_back({"file", fieldLines});
  row.stateParam = 2;
  row.params = LogState(2);
  TParam macros = Macros(16);
  macros.movedTo = 20;  // the server lays the request out so
  macros.movedWhen = "--or-find";
  const TParam rest[] = {
      LogFile(),
      ScanAll(5),
      {.position = 6,
       .form = paramData,
       .option = "--find",
       .preset = nullptr,
       .help = "text to find"},
      Flag(7, "--expression", "--find is an expression: 'a' and not ('b' or 'c')"),
      Flag(8, "--case", "tell capital letters from small ones"),
      Flag(9, "--whole-word", "neither neighbour may be a letter or digit"),
      {.position = 10, .form = paramGiven, .preset = "--or-find"},
      Data(11, "--or-find", "text of the second filter"),
      Flag(12, "--or-expression", "--or-find is an expression"),
      Flag(13, "--or-case", "as --case, for the second filter"),
      Flag(14, "--or-whole-word", "as --whole-word, for the second filter"),
      macros};
  row.params.insert(row.params.begin(), std::begin(rest), std::end(rest));
  return row;
}

static TCommand Files() {
  return {.name = "files",
          .agent = "GetFilesList",
          .summary = "subfolders and files of a folder",
          .params = {Argument(1, "FOLDER", "folder on the agent's host", "/"),
                     Argument(2, "MASK", "mask for the files", "*"),
                     NoFlag(3, "--no-folders", "leave the subfolders out"),
                     NoFlag(4, "--no-files", "leave the files out"),
                     Flag(5, "--hidden", "hidden entries too"),
                     Flag(6, "--system", "system entries too"), Fixed(7, "1"), Fixed(8, "1"),
                     Fixed(9, "1")},
          .shape = shapeFiles};
}

std::vector<TCommand> FileRows() {
  return {Disk(),     FolderSize(), FileExists(), CountFiles(), CompareFiles(), FindText(),
          FindFile(), Checksum(),   TextLog(),    TextLog2(),   Files()};
}

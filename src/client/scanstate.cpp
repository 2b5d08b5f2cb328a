#include "client/scanstate.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <fstream>

#include "client/failure.h"
#include "client/values.h"
#include "core/owned.h"
#include "fs/files.h"

static constexpr char kFirstLine[] = "qov text-log state 1";

std::string WatchIdentity(const TTarget& target, const TCommand& command, TGiven given) {
  PutScanState(TScanState(), given);
  std::string watch = target.host + ' ' + std::to_string(target.port) + ' ' + command.agent;
  for (const std::string& param : BuildParams(command, given)) watch += '\t' + param;
  return watch;
}

static bool TakeLine(std::istream& file, const char* key, std::string& value) {
  std::string line;
  if (!std::getline(file, line) || !line.starts_with(std::string(key) + ' ')) return false;
  value = line.substr(strlen(key) + 1);
  return true;
}

static bool IsWhole(const std::string& text) {
  const size_t digits = text.starts_with('-') ? 1 : 0;
  return text.size() > digits && text.find_first_not_of("0123456789", digits) == std::string::npos;
}

void LoadScanState(const std::string& path, const std::string& watch, TScanState& state) {
  if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) return;
  std::ifstream file(path, std::ios::binary);
  if (!file) throw TUsageFailure("state file " + path + ": " + strerror(errno));
  std::string first, owner;
  TScanState read;
  const bool whole = std::getline(file, first) && first == kFirstLine &&
                     TakeLine(file, "watch", owner) && TakeLine(file, "position", read.position) &&
                     TakeLine(file, "size", read.size) && TakeLine(file, "time", read.time);
  if (!whole || !IsWhole(read.position) || !IsWhole(read.size) || !IsWhole(read.time)) {
    throw TUsageFailure("state file " + path + ": not a state of qovctl; remove it to start anew");
  }
  if (owner != watch) {
    throw TUsageFailure("state file " + path +
                        ": belongs to another watch; name another file, or remove it to start "
                        "anew");
  }
  state = read;
}

void SaveScanState(const std::string& path, const std::string& watch, const TScanState& state) {
  std::string fresh = path + ".XXXXXX";
  const TFd fd(mkostemp(fresh.data(), O_CLOEXEC));  // mode 0600
  if (!fd) throw TUsageFailure("state file " + path + ": " + strerror(errno));
  const std::string bytes = std::string(kFirstLine) + "\nwatch " + watch + "\nposition " +
                            state.position + "\nsize " + state.size + "\ntime " + state.time + '\n';
  if (!WriteFully(fd.Get(), bytes.data(), bytes.size()) || fsync(fd.Get()) != 0 ||
      rename(fresh.c_str(), path.c_str()) != 0) {
    const std::string reason = strerror(errno);
    unlink(fresh.c_str());
    throw TUsageFailure("state file " + path + ": " + reason);
  }
}

TScanState ReadScanState(const TCommand& command, const TAnswer& answer) {
  const std::vector<TValue> values = ReadValues(command, answer);
  const TScanState state = {values[kTextLogState].text, values[kTextLogState + 1].text,
                            values[kTextLogState + 2].text};
  if (!IsWhole(state.position) || !IsWhole(state.size) || !IsWhole(state.time)) {
    throw TSilence("the reply holds no scan state");
  }
  return state;
}

void PutScanState(const TScanState& state, TGiven& given) {
  given["--position"] = state.position;
  given["--size"] = state.size;
  given["--time"] = state.time;
}

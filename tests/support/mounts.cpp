#include "support/mounts.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

TPrivateMounts::TPrivateMounts() : former_(open("/proc/thread-self/ns/mnt", O_RDONLY | O_CLOEXEC)) {
  usable_ =
      unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

TPrivateMounts::~TPrivateMounts() {
  for (const std::string& path : mounted_) umount2(path.c_str(), MNT_DETACH);
  if (usable_) setns(former_.Get(), CLONE_NEWNS);
}

bool TPrivateMounts::AddMemory(const std::string& folder, long sizeBytes, unsigned long flags) {
  const std::string options = "size=" + std::to_string(sizeBytes);
  if (mount("none", folder.c_str(), "tmpfs", flags, options.c_str()) != 0) return false;
  mounted_.push_back(folder);
  return true;
}

bool TPrivateMounts::Cover(const std::string& target, const std::string& file) {
  if (mount(file.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) return false;
  mounted_.push_back(target);
  return true;
}

std::string FillUp(const std::string& folder, long leaveBytes) {
  const std::string path = folder + "/filler";
  const TFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  const std::string block(4096, 'x');
  long size = 0;
  while (write(file.Get(), block.data(), block.size()) > 0) size += 4096;
  if (ftruncate(file.Get(), size - leaveBytes) != 0) return "";
  return path;
}

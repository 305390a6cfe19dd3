#include "plugins/trace/TraceFile.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "plugins/trace/Notice.h"

namespace traceplugin {
namespace {

const char* reasonOf(int error) {
  switch (error) {
    case ELOOP:
      return "it is a symbolic link";
    case ENXIO:
    case EINVAL:
      return "it is neither a regular file nor a device";
    default:
      return strerrordesc_np(error);
  }
}

/// False when there is no room.
bool makeAbsolute(const char* path, char (&absolute)[PATH_MAX]) {
  char folder[PATH_MAX] = "";
  if (path[0] != '/' && getcwd(folder, sizeof folder) == nullptr) {
    return false;
  }
  const int length =
      std::snprintf(absolute, sizeof absolute, path[0] == '/' ? "%s%s" : "%s/%s", folder, path);
  return length > 0 && static_cast<std::size_t>(length) < sizeof absolute;
}

/// Above the standard descriptors, which the host may have closed and may open again.
int aboveStandardDescriptors(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) {
    return descriptor;
  }
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(descriptor);
  errno = error;
  return moved;
}

}  // namespace

const char* TraceFile::open(const char* path, std::uint64_t maxBytes) {
  if (!makeAbsolute(path, path_)) {
    return reasonOf(ENAMETOOLONG);
  }
  maxBytes_ = maxBytes;
  const int length = std::snprintf(oldPath_, sizeof oldPath_, "%s.1", path_);
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof oldPath_) {
    return reasonOf(ENAMETOOLONG);
  }
  const int opened = openNamed();
  if (opened < 0) {
    return reasonOf(errno);
  }
  FileState file;
  file.readOf(opened);
  setDescriptor(opened, file.identity());
  // A device is never renamed.
  isRotated_.store(maxBytes > 0 && file.isRegular, std::memory_order_relaxed);
  return nullptr;
}

bool TraceFile::write(const Record& record) {
  const int descriptor = descriptorFor(record.line().size());
  return descriptor >= 0 && lines_.write(descriptor, record);
}

/// Does not wait: a pipe that nobody reads is refused, and so is what is no file.
int TraceFile::openNamed() const {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
  const int opened = aboveStandardDescriptors(::open(path_, kFlags, 0600));
  FileState file;
  if (opened >= 0 && !(file.readOf(opened) && (file.isRegular || file.isDevice))) {
    close(opened);
    errno = EINVAL;
    return -1;
  }
  return opened;
}

/// Where a record of that size is to be written; below 0 when there is no such place.
int TraceFile::descriptorFor(std::size_t bytes) {
  // While another thread opens the file again; a few calls, in which that thread may have to wait for a processor.
  constexpr int kPatience = 10000;
  for (int turn = 0; turn < kPatience; ++turn) {
    const int descriptor = descriptor_.load(std::memory_order_acquire);
    FileState opened;
    switch (placeOf(descriptor, opened)) {
      case Place::Named:
        if (overflows(opened, bytes)) {
          rotate(bytes);
        }
        return descriptor;
      case Place::Moved:
        followName();
        return descriptor;
      case Place::Unknown:
        if (change_.tryLock()) {
          const int replaced = replaceDescriptorLocked();
          change_.unlock();
          return replaced;
        }
        sched_yield();
    }
  }
  return -1;
}

TraceFile::Place TraceFile::placeOf(int descriptor, FileState& opened) const {
  FileState named;
  if (!opened.readOf(descriptor)) {
    return Place::Unknown;
  }
  if (named.readNamed(path_) && opened.isSameFile(named)) {
    return Place::Named;
  }
  const std::uint64_t identity = opened.identity();
  const bool isOurs = identity == nextIdentity_.load(std::memory_order_acquire) ||
                      identity == identity_.load(std::memory_order_acquire);
  return isOurs ? Place::Moved : Place::Unknown;
}

bool TraceFile::overflows(const FileState& file, std::size_t bytes) const {
  return isRotated_.load(std::memory_order_relaxed) && file.size > 0 && file.size + bytes > maxBytes_;
}

/// One thread of all processes rotates; the others go on with the file they have, wherever it is by then.
void TraceFile::rotate(std::size_t bytes) {
  // A file description of its own: those of threads and of forked processes would share the lock.
  const int lock = openNamed();
  if (lock < 0) {
    return;
  }
  if (flock(lock, LOCK_EX | LOCK_NB) == 0) {
    renameIfFull(lock, bytes);
    followName();
    // Closing is not enough when a process was forked off meanwhile.
    flock(lock, LOCK_UN);
  }
  close(lock);
}

/// Under the lock: the name may have got a new file since we looked.
void TraceFile::renameIfFull(int lock, std::size_t bytes) {
  FileState locked;
  FileState named;
  if (!locked.readOf(lock) || !named.readNamed(path_) || !locked.isSameFile(named) ||
      !overflows(named, bytes)) {
    return;
  }
  if (rename(path_, oldPath_) != 0 && isRotated_.exchange(false, std::memory_order_relaxed)) {
    giveNotice("QLX_TRACE_MAX_BYTES", oldPath_, reasonOf(errno), "the file is not rotated");
  }
}

/// Without a new file we go on with the old one.
void TraceFile::followName() {
  const int opened = openNamed();
  if (opened >= 0) {
    adopt(opened);
  }
}

/// The descriptor's number stays: another thread may be about to write to it. If one just changes it, too, the next
/// line sees what became of it.
void TraceFile::adopt(int opened) {
  FileState file;
  if (file.readOf(opened) && change_.tryLock()) {
    const int descriptor = descriptor_.load(std::memory_order_acquire);
    FileState current;
    if (placeOf(descriptor, current) != Place::Unknown) {
      lines_.beginFile();
      nextIdentity_.store(file.identity(), std::memory_order_release);
      dup3(opened, descriptor, O_CLOEXEC);
      identity_.store(file.identity(), std::memory_order_release);
    }
    change_.unlock();
  }
  close(opened);
}

/// For a host that closes all descriptors, as daemons do, and may have opened something else under our number, which is
/// left alone then. Below 0 when the file cannot be opened again.
int TraceFile::replaceDescriptorLocked() {
  const int descriptor = descriptor_.load(std::memory_order_acquire);
  FileState file;
  // No other thread changes anything now, so this look is right.
  if (placeOf(descriptor, file) != Place::Unknown) {
    return descriptor;
  }
  const int opened = openNamed();
  file.readOf(opened);
  setDescriptor(opened, file.identity());
  return opened;
}

void TraceFile::setDescriptor(int descriptor, std::uint64_t identity) {
  nextIdentity_.store(identity, std::memory_order_release);
  identity_.store(identity, std::memory_order_release);
  descriptor_.store(descriptor, std::memory_order_release);
}

}  // namespace traceplugin

// The two directories, and the file systems that they lie in.

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "findings.h"
#include "reader/collection.h"
#include "reader/layout.h"
#include "user_name.h"
#include "utils/vk_utils/free_space.h"

namespace vosk {

namespace {

constexpr char kMakeThem[] = "as the superuser: systemd-tmpfiles --create qx_vosk.conf, or mkdir -p -m 1777 ";
constexpr std::int64_t kStackSize = 16384;

std::string octal(mode_t mode) {
  char text[16];
  (void)snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777U));
  return text;
}

void examine_mode(findings &found, const std::string &path, const struct stat &st) {
  if ((st.st_mode & 0777) != 0777 || (st.st_mode & S_ISVTX) == 0)
    found.fault(
        "directory_mode",
        path + " has mode " + octal(st.st_mode) +
            ((st.st_mode & 0777) == 0777 ? ": anybody can remove others' records" : ": not everybody can record"),
        "chmod 1777 " + path);
  if (st.st_uid != 0)
    found.fault("directory_owner", path + " belongs to " + user_name(st.st_uid) + ", who can remove others' records",
                "chown root " + path);
  if (faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) != 0)
    found.fault("directory_denied", "files cannot be made in " + path + ": " + error_text(errno),
                errno == EROFS ? "make it writable: in a unit, ReadWritePaths=" + path
                               : "look for access lists and security modules");
}

void examine_file_system(findings &found, const std::string &path) {
  vk::free_space space{};
  if (vk::read_free_space(path.c_str(), space)) {
    const std::uint64_t need = static_cast<std::uint64_t>(kStackSize / space.block_size) + 1;
    if (space.used + need >= space.limit)
      found.fault("no_space", "a file in " + path + " would not leave five percent of its file system free",
                  "free some space there: vosk prune removes what nobody needs");
  }
  struct statvfs figures {};
  if (statvfs(path.c_str(), &figures) == 0 && figures.f_files > 0 && figures.f_favail == 0)
    found.fault("no_inodes", "the file system of " + path + " takes no more files",
                "remove files there: vosk prune removes what nobody needs");
  struct statfs type {};
  if (statfs(path.c_str(), &type) != 0) return;
  if (type.f_type == OVERLAYFS_SUPER_MAGIC)
    found.note("layered", path + " lies in a layered file system: it goes with the container, and i-nodes can change",
               "put a volume there");
  if (type.f_type == NFS_SUPER_MAGIC)
    found.note("network", path + " lies on a network file system: locks and notifications depend on its server",
               "use a local file system");
  if (type.f_type == TMPFS_MAGIC)
    found.note("memory", path + " lies in memory: its records go with the next boot", "put a file system there");
}

void examine_directory(findings &found, const std::string &path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) {
    found.fault(errno == ENOENT ? "directory_missing" : "directory_denied", path + ": " + error_text(errno),
                kMakeThem + path);
  } else if (!S_ISDIR(st.st_mode)) {
    found.fault("directory_replaced", path + " is no directory", "remove it, and then " + (kMakeThem + path));
  } else {
    examine_mode(found, path, st);
    examine_file_system(found, path);
  }
}

}  // namespace

void examine_directories(findings &found) {
  for (const char *path : {kStackDirectory, kDumpDirectory}) examine_directory(found, path);
  rlimit limit{};
  (void)getrlimit(RLIMIT_FSIZE, &limit);  // no limit is the largest one
  if (limit.rlim_cur < static_cast<rlim_t>(layout::kMaxFileSize))
    found.fault("file_size_limit", "files may have " + std::to_string(limit.rlim_cur) + " bytes: too few for a stack",
                "raise it: ulimit -f, or LimitFSIZE= of the unit");
}

}  // namespace vosk

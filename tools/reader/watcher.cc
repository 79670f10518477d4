#include "watcher.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "collection.h"

namespace vosk {

namespace {

constexpr int kPollInterval = 400;  // milliseconds; a record that lives for a second is seen
// One recording writes several times, and its stack is read once.
constexpr int kSettle = 20;

constexpr std::uint32_t kEvents =
    IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

bool is_directory(const std::string &path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Of changes that other nodes make in a file system the kernel knows nothing.
bool is_remote(const std::string &path) {
  struct statfs fs {};
  if (statfs(path.c_str(), &fs) != 0) return false;
  constexpr std::array<std::uint32_t, 6> kRemote = {0x6969, 0x517B, 0xFF534D42, 0xFE534D42, 0x65735546, 0x01021997};
  return std::find(kRemote.begin(), kRemote.end(), static_cast<std::uint32_t>(fs.f_type)) != kRemote.end();
}

std::string parent_of(const std::string &path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string below(const std::string &directory, const char *name) {
  std::string path = directory;
  if (!path.ends_with('/')) path += '/';
  return path += name;
}

}  // namespace

watcher::watcher(std::vector<std::string> places, int depth, bool notified)
    : places_(std::move(places)),
      depth_(depth),
      notifications_(notified ? inotify_init1(IN_NONBLOCK | IN_CLOEXEC) : -1) {
  std::set<std::string> ignored;
  watch_all(ignored);
  look_again(ignored);
}

bool watcher::watch(const std::string &directory) {
  if (watched_.count(directory) != 0) return true;
  if (!notifications_.valid() || is_remote(directory)) return false;
  const int id = inotify_add_watch(notifications_.get(), directory.c_str(), kEvents);
  if (id < 0) return false;
  directories_[id] = directory;
  watched_.insert(directory);
  return true;
}

// Watches a directory and those in it; whatever is in a directory that was not watched before has changed. Each is
// watched before it is looked into, so that nothing comes between.
void watcher::watch_below(const std::string &directory, std::set<std::string> &changed) {
  std::set<std::string> fresh;
  const auto enter = [&](const std::string &inner) {
    const bool known = watched_.count(inner) != 0;
    if (!watch(inner))
      polling_ = true;
    else if (!known)
      fresh.insert(inner);
  };
  enter(directory);
  const bool is_fresh = !fresh.empty();
  const auto note = [&](int /*dir*/, const directory_entry &entry, const std::string &path) {
    if ((is_fresh || fresh.count(parent_of(path)) != 0) && entry.type != DT_DIR) changed.insert(path);
  };
  (void)walk_directory(directory, depth_, note, enter);
}

void watcher::watch_all(std::set<std::string> &changed) {
  polling_ = false;
  for (const std::string &place : places_) {
    if (is_directory(place)) {
      watch_below(place, changed);
    } else {
      const bool known = watched_.count(parent_of(place)) != 0;
      if (!watch(parent_of(place)))
        polling_ = true;
      else if (!known)
        changed.insert(place);
    }
  }
}

bool watcher::is_wanted(const std::string &path) const {
  const auto covers = [&](const std::string &place) {
    if (path == place) return true;
    const bool inside = path.starts_with(place) && (place.ends_with('/') || path[place.size()] == '/');
    return inside &&
           std::count(path.begin() + static_cast<std::ptrdiff_t>(place.size()) + 1, path.end(), '/') <= depth_;
  };
  return std::any_of(places_.begin(), places_.end(), covers);
}

void watcher::take_notifications(std::set<std::string> &changed) {
  alignas(inotify_event) std::array<char, 16 * (sizeof(inotify_event) + NAME_MAX + 1)> buffer;
  bool lost = false, directories_changed = false;
  for (;;) {
    const ssize_t size = read(notifications_.get(), buffer.data(), buffer.size());
    if (size <= 0) break;
    for (ssize_t at = 0; at < size;) {
      inotify_event event;
      std::memcpy(&event, buffer.data() + at, sizeof event);
      const char *const name = buffer.data() + at + sizeof event;
      at += static_cast<ssize_t>(sizeof event) + event.len;
      if ((event.mask & IN_Q_OVERFLOW) != 0) lost = true;
      const auto directory = directories_.find(event.wd);
      if (directory == directories_.end()) continue;
      if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0) {
        watched_.erase(directory->second);
        directories_.erase(directory);
        directories_changed = true;
      } else if ((event.mask & IN_ISDIR) != 0) {
        directories_changed = true;
      } else if ((event.mask & (IN_MODIFY | IN_CREATE | IN_MOVED_TO)) != 0) {
        std::string path = below(directory->second, name);
        if (is_wanted(path)) changed.insert(std::move(path));
      }
    }
  }
  if (lost) {
    for (const std::string &place : places_)
      (void)walk_directory(place, depth_,
                           [&](int, const directory_entry &, const std::string &path) { changed.insert(path); });
  }
  if (directories_changed) watch_all(changed);
}

void watcher::look_again(std::set<std::string> &changed) {
  if (!polling_) return;
  const auto look = [&](int dir, const char *name, const std::string &path) {
    struct stat st {};
    if (fstatat(dir, name, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode)) return;
    const seen_file now{
        st.st_size, {st.st_mtim.tv_sec, static_cast<std::int32_t>(st.st_mtim.tv_nsec / 1000)}, st.st_ino};
    seen_file &before = seen_[path];
    // Two changes can be so close that their times are the same: after one comes another report.
    if (before != now)
      unsettled_.insert(path);
    else if (unsettled_.erase(path) == 0)
      return;
    before = now;
    changed.insert(path);
  };
  for (const std::string &place : places_) {
    const bool is_tree = walk_directory(
        place, depth_,
        [&](int dir, const directory_entry &entry, const std::string &path) { look(dir, entry.name.c_str(), path); });
    if (!is_tree) look(AT_FDCWD, place.c_str(), place);
  }
}

bool watcher::wait(std::set<std::string> &changed, int output) {
  while (changed.empty()) {
    std::array<pollfd, 2> fds = {{{notifications_.get(), POLLIN, 0}, {output, 0, 0}}};
    const int ready = poll(fds.data(), fds.size(), polling_ ? kPollInterval : -1);
    if (ready < 0 && errno != EINTR) return false;
    if ((fds[1].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) return false;
    if (ready > 0) {
      (void)poll(nullptr, 0, kSettle);
      take_notifications(changed);
    }
    if (polling_) {
      watch_all(changed);
      look_again(changed);
    }
  }
  return true;
}

}  // namespace vosk

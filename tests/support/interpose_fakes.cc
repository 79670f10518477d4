// The answers that a Calls object gives in place of the kernel.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstring>

#include "support/interpose.h"
#include "support/interpose_engine.h"

namespace platform {

namespace {

// Stands for the stream of a fake directory; only its address is used.
char fake_directory_stream;

struct ifreq interface_record(const FakeInterface &from) {
  struct ifreq record;
  std::memset(&record, 0, sizeof record);
  // The kernel's names fill all 16 bytes without a terminator where they are long enough.
  std::memcpy(record.ifr_name, from.name.data(), std::min(from.name.size(), sizeof record.ifr_name));
  if (from.family == AF_INET6) {
    struct sockaddr_in6 address;
    std::memset(&address, 0, sizeof address);
    address.sin6_family = AF_INET6;
    inet_pton(AF_INET6, from.address.c_str(), &address.sin6_addr);
    std::memcpy(&record.ifr_ifru, &address, std::min(sizeof address, sizeof record.ifr_ifru));
    return record;
  }
  struct sockaddr_in address;
  std::memset(&address, 0, sizeof address);
  address.sin_family = static_cast<sa_family_t>(from.family);
  inet_pton(AF_INET, from.address.c_str(), &address.sin_addr);
  std::memcpy(&record.ifr_ifru, &address, sizeof address);
  return record;
}

}  // namespace

void Calls::fixed_clock(std::int64_t seconds, std::int64_t microseconds, std::int64_t step) {
  clock_ = Clock{seconds * 1000000 + microseconds, step};
}

bool Engine::clock(Calls &calls, std::int64_t &seconds, std::int64_t &microseconds) {
  if (!calls.clock_) return false;
  std::int64_t now = calls.clock_->microseconds;
  calls.clock_->microseconds += calls.clock_->step;
  seconds = now / 1000000;
  microseconds = now % 1000000;
  if (microseconds < 0) {  // before the epoch
    microseconds += 1000000;
    --seconds;
  }
  return true;
}

void Calls::statfs_figures(std::vector<StatfsFigures> figures) {
  figures_ = std::move(figures);
  figures_used_ = 0;
}

bool Engine::statfs_result(Calls &calls, struct statfs *out) {
  if (calls.figures_.empty()) return false;
  const StatfsFigures &figures = calls.figures_[std::min(calls.figures_used_, calls.figures_.size() - 1)];
  ++calls.figures_used_;
  std::memset(out, 0, sizeof *out);
  out->f_blocks = figures.blocks;
  out->f_bavail = figures.available;
  out->f_bfree = figures.available;
  out->f_bsize = figures.block_size;
  return true;
}

void Calls::fake_stat(std::string_view name, std::string_view path, FakeStat result) {
  stats_.push_back({std::string(name), std::string(path), result});
}

bool Engine::stat_result(Calls &calls, const Call &call, struct stat *out) {
  for (const Calls::StatRule &rule : calls.stats_) {
    if (rule.name != call.name || (!rule.path.empty() && rule.path != call.path)) continue;
    std::memset(out, 0, sizeof *out);
    out->st_mode = rule.result.mode;
    out->st_ino = rule.result.inode;
    out->st_dev = rule.result.device;
    out->st_size = rule.result.size;
    out->st_nlink = 1;
    return true;
  }
  return false;
}

void Calls::fake_directory(std::vector<FakeEntry> entries) {
  directory_ = std::move(entries);
  directory_position_ = 0;
}

DIR *Engine::open_directory(Calls &calls) {
  if (!calls.directory_) return nullptr;
  calls.directory_position_ = 0;
  return reinterpret_cast<DIR *>(&fake_directory_stream);
}

bool Engine::is_fake(const Calls &, const DIR *directory) {
  return reinterpret_cast<const char *>(directory) == &fake_directory_stream;
}

int Engine::read_directory(Calls &calls, struct dirent *entry, struct dirent **result) {
  *result = nullptr;
  if (calls.directory_position_ >= calls.directory_->size()) return 0;
  const FakeEntry &from = (*calls.directory_)[calls.directory_position_++];
  entry->d_ino = from.inode;
  entry->d_off = static_cast<off_t>(calls.directory_position_);
  entry->d_type = from.type;
  std::size_t length = std::min(from.name.size(), sizeof entry->d_name - 1);
  std::memcpy(entry->d_name, from.name.data(), length);
  entry->d_name[length] = '\0';
  entry->d_reclen = static_cast<unsigned short>((offsetof(struct dirent, d_name) + length + 8) & ~std::size_t{7});
  *result = entry;
  return 0;
}

void Engine::remember_directory(Calls &calls, const void *handle, std::string path) {
  calls.handles_[handle] = std::move(path);
}

std::string Engine::directory_path(const Calls &calls, const void *handle) {
  auto known = calls.handles_.find(handle);
  return known == calls.handles_.end() ? "" : known->second;
}

void Calls::fake_interfaces(std::vector<FakeInterface> interfaces, std::optional<int> length) {
  interfaces_ = std::move(interfaces);
  interface_length_ = length;
}

bool Engine::interface_query(Calls &calls, unsigned long request, void *argument, int &result) {
  if (!calls.interfaces_) return false;
  if (request == SIOCGIFCONF) {
    auto *list = static_cast<struct ifconf *>(argument);
    int room = list->ifc_len;
    int used = 0;
    for (const FakeInterface &from : *calls.interfaces_) {
      struct ifreq record = interface_record(from);
      int size = static_cast<int>(sizeof record);
      if (list->ifc_buf != nullptr) {
        if (used + size > room) break;  // the kernel stores whole records only
        std::memcpy(list->ifc_buf + used, &record, sizeof record);
      }
      used += size;
    }
    list->ifc_len = calls.interface_length_.value_or(used);
    result = 0;
    return true;
  }
  if (request != SIOCGIFFLAGS) return false;
  auto *record = static_cast<struct ifreq *>(argument);
  std::string name(record->ifr_name, strnlen(record->ifr_name, sizeof record->ifr_name));
  for (FakeInterface &from : *calls.interfaces_) {
    if (from.name.substr(0, sizeof record->ifr_name) != name) continue;
    if (from.flags_eintr > 0) {
      --from.flags_eintr;
      errno = EINTR;
      result = -1;
      return true;
    }
    if (from.flags_error != 0) {
      errno = from.flags_error;
      result = -1;
      return true;
    }
    record->ifr_flags = static_cast<short>(from.flags);
    result = 0;
    return true;
  }
  errno = ENODEV;
  result = -1;
  return true;
}

void Calls::fake_auxval(unsigned long type, unsigned long value) {
  auxvals_[type] = value;
}

bool Engine::auxval(const Calls &calls, unsigned long type, unsigned long &value) {
  auto found = calls.auxvals_.find(type);
  if (found == calls.auxvals_.end()) return false;
  value = found->second;
  return true;
}

void Calls::fake_rlimit(int resource, std::uint64_t soft, std::uint64_t hard) {
  rlimits_[resource] = {soft, hard};
}

bool Engine::rlimit_result(const Calls &calls, int resource, struct rlimit *out) {
  auto found = calls.rlimits_.find(resource);
  if (found == calls.rlimits_.end()) return false;
  out->rlim_cur = found->second.first;
  out->rlim_max = found->second.second;
  return true;
}

}  // namespace platform

// This node's addresses, from the kernel's interface list.
#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/vk_debug/trace.h"

namespace vk {
namespace {

constexpr std::size_t kListSize = VK_ADDRESS_MAX * sizeof(ifreq);
static_assert(sizeof(ifreq) == 40 && kListSize == 2560);

int open_socket() noexcept {
  int fd;
  do fd = socket(AF_INET, SOCK_DGRAM, 0);
  while (fd == -1 && errno == EINTR);
  return fd;
}

bool ask(int fd, unsigned long request, void *answer) noexcept {
  int result;
  do result = ioctl(fd, request, answer);
  while (result == -1 && errno == EINTR);
  return result != -1;
}

int give_up(const tracer &trace, const char *what, int err) noexcept {
  VK_TRACE(trace, "Cannot %s socket - error code %d\nReturning %s(%d) to caller", what, err, vosk_name(VOSK_FAILURE),
           VOSK_FAILURE);
  return VOSK_FAILURE;
}

void trace_interface(const tracer &trace, const ifreq &record, unsigned int flags, const char *text) noexcept {
  char name[IFNAMSIZ + 1] = {};  // the kernel's name may fill its field
  std::memcpy(name, record.ifr_name, IFNAMSIZ);
  VK_TRACE(trace, "Adapt Info: %s %.8x address=%s %s %s %s", name, flags, text, "AF_INET",
           (flags & IFF_UP) != 0 ? "IFF_UP" : " ", (flags & IFF_LOOPBACK) != 0 ? "IFF_LOOPBACK" : " ");
}

// Where the addresses go: one chosen for the node, or all in a list.
class collector {
 public:
  collector(char *addresses, bool choose_one, unsigned int *count) noexcept
      : addresses_(addresses), count_(count), choose_one_(choose_one) {}

  // True when the search is over.
  bool take(const char *text, unsigned int flags) noexcept {
    if (!choose_one_) {
      put(addresses_ + listed_++ * VK_ADDRESS_SLOT, text);
      if (count_ != nullptr) ++*count_;
      return false;
    }
    constexpr unsigned int kUpLoopback = IFF_UP | IFF_LOOPBACK;
    if ((flags & kUpLoopback) == kUpLoopback && fallback_[0] == '\0') {
      put(fallback_, text);
      return false;
    }
    // Anything else stands for the node, even one that is down and even a second up loopback.
    put(addresses_, text);
    found_ = true;
    return true;
  }

  void finish() noexcept {
    if (!choose_one_) return;
    if (!found_) put(addresses_, fallback_);
    if (count_ != nullptr) *count_ = 1;
  }

 private:
  static void put(char *slot, const char *text) noexcept { std::memcpy(slot, text, std::strlen(text) + 1); }

  char *const addresses_;
  unsigned int *const count_;
  const bool choose_one_;
  bool found_ = false;
  std::size_t listed_ = 0;
  char fallback_[VK_ADDRESS_SLOT] = {};
};

}  // namespace
}  // namespace vk

int vk_obtain_ipaddrs(int trace_on, const char *trace_path, char *addresses, unsigned int choose_one,
                      unsigned int *count) {
  const vk::tracer trace(trace_on, trace_path, "vk_obtain_ipaddrs");
  const int fd = vk::open_socket();
  if (fd == -1) return vk::give_up(trace, "create", errno);
  // The socket stays open, on purpose: one descriptor a call. At least no child inherits it.
  (void)fcntl(fd, F_SETFD, FD_CLOEXEC);

  ifreq list[VK_ADDRESS_MAX] = {};
  ifconf query = {};
  query.ifc_len = static_cast<int>(vk::kListSize);
  query.ifc_req = list;
  if (!vk::ask(fd, SIOCGIFCONF, &query)) return vk::give_up(trace, "issue ioctl(1) on", errno);

  vk::collector collector(addresses, choose_one != 0, count);
  const std::size_t filled = query.ifc_len < 0 ? 0 : static_cast<std::size_t>(query.ifc_len);
  const std::size_t records = (std::min(filled, vk::kListSize) + sizeof(ifreq) - 1) / sizeof(ifreq);
  for (std::size_t i = 0; i < records; ++i) {
    const ifreq &record = list[i];
    ifreq asked = record;
    if (!vk::ask(fd, SIOCGIFFLAGS, &asked)) {
      const int err = errno;
      if (err == EADDRNOTAVAIL) continue;
      (void)close(fd);
      return vk::give_up(trace, "issue ioctl(2) on", err);
    }
    sockaddr_in address;
    std::memcpy(&address, &record.ifr_addr, sizeof address);
    if (address.sin_family != AF_INET) continue;
    char text[VK_ADDRESS_SLOT] = {};
    const char *dotted = inet_ntoa(address.sin_addr);
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result): the zeros of `text` are behind it
    std::memcpy(text, dotted, std::min(std::strlen(dotted), sizeof text - 1));
    const auto flags = static_cast<unsigned short>(asked.ifr_flags);
    vk::trace_interface(trace, record, flags, text);
    if (collector.take(text, flags)) break;
  }
  collector.finish();
  VK_TRACE(trace, "Returning %s(%d) to the caller", vk::vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

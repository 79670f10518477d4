// Tells which stack files have changed: through the kernel's notifications, or by looking again and again where there
// are none.
#ifndef TOOLS_READER_WATCHER_H
#define TOOLS_READER_WATCHER_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "safe_file.h"

namespace vosk {

class watcher {
 public:
  // Files and directories, which need not exist yet. `depth`: how far below a directory. `notified` false: never ask
  // the kernel.
  watcher(std::vector<std::string> places, int depth, bool notified = true);

  // Waits until files have changed, and adds their paths to `changed`; or until nobody reads from `output` any more:
  // then it returns false. Changes since the construction are not lost.
  bool wait(std::set<std::string> &changed, int output);

 private:
  struct seen_file {
    std::int64_t size = 0;
    moment modified;
    std::uint64_t inode = 0;
    bool operator==(const seen_file &) const = default;
  };

  void watch_all(std::set<std::string> &changed);
  bool watch(const std::string &directory);
  void watch_below(const std::string &directory, std::set<std::string> &changed);
  void take_notifications(std::set<std::string> &changed);
  void look_again(std::set<std::string> &changed);
  bool is_wanted(const std::string &path) const;

  std::vector<std::string> places_;
  int depth_;
  unique_fd notifications_;
  std::map<int, std::string> directories_;  // by watch
  std::set<std::string> watched_;           // the same directories
  std::map<std::string, seen_file> seen_;   // where they have to be looked at
  std::set<std::string> unsettled_;         // those of them that the last look found changed
  bool polling_ = false;                    // some place is not watched
};

}  // namespace vosk

#endif

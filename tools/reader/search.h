// Finds the record that an identifier belongs to. The identifier inside the record decides; i-nodes only say where to
// look first.
#ifndef TOOLS_READER_SEARCH_H
#define TOOLS_READER_SEARCH_H

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "collection.h"

namespace vosk {

struct found_record {
  const stack_file *file = nullptr;
  const record *what = nullptr;
};

// Looks through directories of stacks, one after the other, and keeps what it has read.
class record_search {
 public:
  // `eid` has 42 characters and is one of a stack.
  explicit record_search(std::string_view eid);

  // Each returns what the directory gave: read, missing or failed.
  //   by i-node    those files directly in `dir` that have the identifier's i-node now; they are kept as candidates
  //   by content   those files below `dir` (or the file `dir`) in which the identifier's characters occur
  //   siblings     those that hold a record of the same i-node and node; they are kept as candidates, too
  outcome look_by_inode(const std::string &dir);
  outcome look_by_content(const std::string &dir);
  outcome look_for_siblings(const std::string &dir);

  // The records with the identifier. In copies of one file they are the same; otherwise it was made twice.
  const std::vector<found_record> &found() const noexcept { return found_; }

  // Files in which the record should be, or have been.
  const std::vector<const stack_file *> &candidates() const noexcept { return candidates_; }

  // Files with the i-node that are no stacks, or cannot be read.
  const std::vector<refused_file> &refused() const noexcept { return refused_; }

  std::size_t files_searched() const noexcept { return searched_; }

 private:
  enum class kept { if_found, as_sibling, always };

  void read(int dir, const char *name, const std::string &path, kept when, std::string_view text);
  outcome look(const std::string &dir, std::string_view text, kept when);
  bool is_sibling(const stack_file &file) const;

  std::string eid_;
  std::uint64_t inode_;
  collector reader_;
  std::deque<stack_file> files_;
  std::vector<found_record> found_;
  std::vector<const stack_file *> candidates_;
  std::vector<refused_file> refused_;
  std::size_t searched_ = 0;
};

// True if both stand for one record: copied, or read from two names of one file.
bool same_record(const found_record &a, const found_record &b) noexcept;

}  // namespace vosk

#endif

// Finds the records of many identifiers, one after the other, in memory that does not grow with their number.
#ifndef TOOLS_READER_RECORD_INDEX_H
#define TOOLS_READER_RECORD_INDEX_H

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "search.h"

namespace vosk {

class record_index {
 public:
  // `node_stacks`: the node's directory of stacks, in which a file's i-node tells whether to look into it. `copies`:
  // files and directories in which only the contents tell.
  record_index(std::string node_stacks, std::vector<std::string> copies);

  // The record with the identifier, or nulls. Valid until the next call.
  found_record find(std::string_view eid);

 private:
  struct cached_file {
    std::string path;
    stack_file file;
  };

  void read_directory();
  void read_copies();
  const stack_file *cached(const std::string &path);
  const stack_file *load(const std::string &path);
  found_record find_in(const std::string &path, std::string_view eid);

  std::string node_stacks_;
  std::vector<std::string> copies_;
  std::multimap<std::uint64_t, std::string> by_inode_;         // the node's stacks, by the files' i-nodes
  std::multimap<std::uint64_t, std::string> copies_by_inode_;  // by the i-nodes that their identifiers name
  std::map<std::string, packed_place> packed_;                 // copies in archives, by path
  std::list<cached_file> cache_;                               // the one used last first
  collector reader_;
  bool copies_read_ = false;
  std::int64_t directory_read_ = 0;  // when, in seconds; a directory changes
};

}  // namespace vosk

#endif

// The stack files that a command looks at.
#ifndef TOOLS_READER_COLLECTION_H
#define TOOLS_READER_COLLECTION_H

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "archive.h"
#include "safe_file.h"
#include "stack.h"

namespace vosk {

inline constexpr char kStackDirectory[] = "/var/adm/vosk/stacks";
inline constexpr char kDumpDirectory[] = "/var/adm/vosk/dumps";
inline constexpr char kManifestName[] = "manifest.json";  // of a collection

struct directory_entry {
  std::string name;
  unsigned char type = 0;  // as in struct dirent
  std::uint64_t inode = 0;
};

// Opens a directory. Its last component may be a link only where the user named it.
unique_fd open_directory(int dir, const char *name, bool follow);

// All entries but "." and "..", by name. False with errno set if they cannot be read.
bool list_directory(int fd, std::vector<directory_entry> &entries);

// Calls `visit(directory, entry, path)` for everything below `top` that is not a directory, and for directories deeper
// than `depth` levels. False, with errno set, if `top` cannot be read; directories below it that cannot be are passed
// to `visit`, too. Links are not followed. `enter` is called with each directory before it is read.
using visit_entry = std::function<void(int dir, const directory_entry &entry, const std::string &path)>;
using enter_directory = std::function<void(const std::string &path)>;
bool walk_directory(const std::string &top, int depth, const visit_entry &visit, const enter_directory &enter = {});

// Where a stack is that lies in an archive.
struct packed_place {
  std::string archive;  // its path
  archive_member member;
};

struct stack_file {
  std::string path;
  file_facts facts;
  bool steady = true;
  stack contents;
  std::optional<packed_place> packed;
};

// A file that is not among the stacks, and why.
struct refused_file {
  std::string path, reason;
  bool failed = false;  // it could not be read; otherwise it is no stack
  bool missing = false;
  std::optional<moment> birth;
};

// The logs of the collections in a directory, or of the one that `path` is: archives, and files of unpacked ones.
std::vector<std::string> logs_of_collections(const std::string &path);

struct collection {
  std::vector<stack_file> stacks;  // by path, in the order of the names given
  std::vector<refused_file> refused;
};

// Reads files and directories, and archives: the stacks in one are read as those in a directory are. Below a directory
// that is named, stacks are looked for in the directories that it holds, too; in the node's own stack directory there
// are none.
class collector {
 public:
  void add(const std::string &path);  // a file or a directory
  void add_file(int dir, const char *name, const std::string &path);
  void add_packed(const packed_place &place);
  collection take() { return std::exchange(found_, {}); }  // what was added since the last call

 private:
  bool add_archive(int dir, const char *name, const std::string &path);
  void add_member(int fd, const std::string &archive, const archive_member &member);

  lock_patience patience_;
  collection found_;
};

}  // namespace vosk

#endif

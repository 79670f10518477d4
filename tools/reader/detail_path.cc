#include "detail_path.h"

#include <fcntl.h>

#include "collection.h"

namespace vosk {

std::optional<std::string> cited_copy(std::string_view detail) {
  const std::string_view directory = kDumpDirectory;
  if (!detail.starts_with(directory) || detail.size() <= directory.size() + 1 || detail[directory.size()] != '/')
    return std::nullopt;
  const std::string_view name = detail.substr(directory.size() + 1);
  if (name.find('/') != std::string_view::npos || name == "." || name == "..") return std::nullopt;
  return std::string(name);
}

opened_file open_copy(const std::string &dumps, const std::string &name) {
  const unique_fd directory = open_directory(AT_FDCWD, dumps.c_str(), true);
  if (!directory.valid()) {
    opened_file none;
    none.result = errno == ENOENT ? outcome::missing : outcome::failed;
    none.reason = error_text(errno);
    return none;
  }
  return open_regular(directory.get(), name.c_str());
}

}  // namespace vosk

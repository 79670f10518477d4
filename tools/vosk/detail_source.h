// Where the library copies a record's details from.
#ifndef TOOLS_VOSK_DETAIL_SOURCE_H
#define TOOLS_VOSK_DETAIL_SOURCE_H

#include <string>
#include <utility>

#include "reader/safe_file.h"

namespace vosk {

// A file's name, or a file in memory that has one as long as this object lives.
class detail_source {
 public:
  // Pipes, devices and, for "-", standard input are read to their end, or to the largest size that is kept. Throws
  // std::runtime_error where they cannot be.
  static detail_source of_file(const std::string &name);
  static detail_source of_name(const std::string &name) { return detail_source(name); }
  static detail_source of_text(const std::string &text);

  const std::string &path() const noexcept { return path_; }
  bool cut() const noexcept { return cut_; }

 private:
  explicit detail_source(std::string path) : path_(std::move(path)) {}
  explicit detail_source(unique_fd memory);

  unique_fd memory_;
  std::string path_;
  bool cut_ = false;
};

}  // namespace vosk

#endif

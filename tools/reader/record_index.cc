#include "record_index.h"

#include <fcntl.h>

#include <algorithm>
#include <ctime>

namespace vosk {

namespace {

constexpr std::size_t kCachedFiles = 64;

std::int64_t seconds_now() {
  timespec now{};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec + 1;  // 0 stands for never
}

}  // namespace

record_index::record_index(std::string node_stacks, std::vector<std::string> copies)
    : node_stacks_(std::move(node_stacks)), copies_(std::move(copies)) {}

void record_index::read_directory() {
  directory_read_ = seconds_now();
  by_inode_.clear();
  (void)walk_directory(node_stacks_, 0, [&](int /*dir*/, const directory_entry &entry, const std::string &path) {
    by_inode_.emplace(entry.inode & kInodeMask, path);
  });
}

void record_index::read_copies() {
  copies_read_ = true;
  for (const std::string &place : copies_) {
    reader_.add(place);
    for (const stack_file &file : reader_.take().stacks) {
      copies_by_inode_.emplace(file.contents.inode, file.path);
      if (file.packed) packed_.emplace(file.path, *file.packed);
    }
  }
}

const stack_file *record_index::cached(const std::string &path) {
  const auto at =
      std::find_if(cache_.begin(), cache_.end(), [&](const cached_file &entry) { return entry.path == path; });
  if (at == cache_.end()) return nullptr;
  cache_.splice(cache_.begin(), cache_, at);
  return &cache_.front().file;
}

const stack_file *record_index::load(const std::string &path) {
  cache_.remove_if([&](const cached_file &entry) { return entry.path == path; });
  const auto packed = packed_.find(path);
  if (packed != packed_.end())
    reader_.add_packed(packed->second);
  else
    reader_.add_file(AT_FDCWD, path.c_str(), path);
  collection got = reader_.take();
  if (got.stacks.empty()) return nullptr;
  if (cache_.size() == kCachedFiles) cache_.pop_back();
  cache_.push_front({path, std::move(got.stacks.front())});
  return &cache_.front().file;
}

// A stack that was read before can have grown since.
found_record record_index::find_in(const std::string &path, std::string_view eid) {
  const auto record_of = [&](const stack_file *file) -> found_record {
    if (file != nullptr)
      for (const record &r : file->contents.records)
        if (identifier_text(r.eid) == eid) return {file, &r};
    return {};
  };
  const found_record known = record_of(cached(path));
  return known.what != nullptr ? known : record_of(load(path));
}

found_record record_index::find(std::string_view eid) {
  const std::uint64_t inode = field_value(eid.substr(1, 6)).value_or(0);
  if (directory_read_ == 0) read_directory();
  if (by_inode_.count(inode) == 0 && seconds_now() > directory_read_) read_directory();
  if (!copies_read_) read_copies();
  for (const auto *places : {&by_inode_, &copies_by_inode_}) {
    const auto [first, last] = places->equal_range(inode);
    for (auto at = first; at != last; ++at)
      if (const found_record found = find_in(at->second, eid); found.what != nullptr) return found;
  }
  return {};
}

}  // namespace vosk

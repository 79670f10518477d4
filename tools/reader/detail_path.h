// Details that are a file: a record's detail then is the path of a copy.
#ifndef TOOLS_READER_DETAIL_PATH_H
#define TOOLS_READER_DETAIL_PATH_H

#include <optional>
#include <string>
#include <string_view>

#include "safe_file.h"

namespace vosk {

// The name of the copy that a detail text cites: only a path directly under /var/adm/vosk/dumps counts.
std::optional<std::string> cited_copy(std::string_view detail);

// Opens a copy by its name. `dumps` is the directory that copies lie in.
opened_file open_copy(const std::string &dumps, const std::string &name);

}  // namespace vosk

#endif

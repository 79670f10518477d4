// A small model of the trace file's writer, independent of the library: what one entry makes of a file's bytes,
// whatever they are. Differential tests and fuzz targets compare the library with it.
//
//   std::string bytes = trace_model::fresh(16384);
//   EXPECT_EQ(vk_debug(path, "routine", "text"), trace_model::append(bytes, entry));
//   EXPECT_EQ(files::read(path), bytes);
#ifndef QX_TESTS_SUPPORT_TRACE_MODEL_H
#define QX_TESTS_SUPPORT_TRACE_MODEL_H

#include <cstdint>
#include <string>
#include <string_view>

namespace trace_model {

// The file as it is reserved.
std::string fresh(int size);

// One entry as it is written.
std::string entry(std::int64_t seconds, std::string_view routine, int pid, int thread, std::string_view message);

// Appends the entry; the result is that of vk_debug.
int append(std::string &bytes, std::string_view entry);

}  // namespace trace_model

#endif

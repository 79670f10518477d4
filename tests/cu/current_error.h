// Short ways to the current error of the calling thread.

#ifndef TESTS_CU_CURRENT_ERROR_H
#define TESTS_CU_CURRENT_ERROR_H

#include <string>

#include "qx_cu.h"

inline cu_error_t current_error() {
  cu_error_t error{};
  cu_get_error_1(&error);
  return error;
}

inline std::string current_text() {
  return current_error().text;
}

#endif

// Users by name.
#ifndef TOOLS_VOSK_USER_NAME_H
#define TOOLS_VOSK_USER_NAME_H

#include <pwd.h>
#include <sys/types.h>

#include <string>

namespace vosk {

// The number where nobody has it.
inline std::string user_name(uid_t uid) {
  const passwd *const user = getpwuid(uid);
  return user != nullptr ? user->pw_name : std::to_string(uid);
}

}  // namespace vosk

#endif

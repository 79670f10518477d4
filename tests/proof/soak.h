// How much the random and repeated tests do: little in an ordinary run, much under "./dev soak".
#ifndef QX_TESTS_PROOF_SOAK_H
#define QX_TESTS_PROOF_SOAK_H

#include <cstdlib>
#include <random>

namespace proof {

inline bool soaking() {
  return std::getenv("QX_SOAK") != nullptr;
}
inline int short_or_long(int in_short, int in_long) {
  return soaking() ? in_long : in_short;
}

// The seed that QX_SEED names, or one that stays the same; the long form takes another each time.
inline unsigned seed() {
  const char *text = std::getenv("QX_SEED");
  if (text != nullptr) return static_cast<unsigned>(std::strtoul(text, nullptr, 10));
  return soaking() ? std::random_device()() : 20240229;
}

}  // namespace proof

#endif

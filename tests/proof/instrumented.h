// Whether this program is built with a sanitizer that makes it slow.
#ifndef QX_TESTS_PROOF_INSTRUMENTED_H
#define QX_TESTS_PROOF_INSTRUMENTED_H

namespace proof {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kInstrumented = true;
#else
constexpr bool kInstrumented = false;
#endif

}  // namespace proof

#endif

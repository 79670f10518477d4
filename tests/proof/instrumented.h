// Whether this program is built with a sanitizer, or with counters, that make it slow.
#ifndef QX_TESTS_PROOF_INSTRUMENTED_H
#define QX_TESTS_PROOF_INSTRUMENTED_H

namespace proof {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(QX_COVERAGE)
constexpr bool kInstrumented = true;
#else
constexpr bool kInstrumented = false;
#endif

}  // namespace proof

#endif

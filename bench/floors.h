/* The system calls, and the lookups in the environment, that a road cannot do without: in their order, nothing else. */
#ifndef BENCH_FLOORS_H
#define BENCH_FLOORS_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* `inherited`: the process is not the one that established the environment, and asks for its parent. */
void floor_push(const char *directory, const char *stack, size_t record, int inherited);
void floor_wrapped_push(const char *directory, const char *stack, size_t record, size_t cleared);
void floor_first_push(const char *directory, const char *stack, size_t record);
void floor_log(void);
void floor_stack_identifier(const char *stack);
void floor_syslog_identifier(void);
void floor_decode(void);
void floor_decode_with_search(const char *directory);
void floor_trace_line(const char *trace, size_t entry, size_t remains);
/* A push and its lines, of these lengths. */
void floor_traced_push(const char *directory, const char *stack, size_t record, const char *trace,
                       const size_t *entries, size_t count);
void floor_environment_test(void);
void floor_base64(long value);
void floor_reserve(const char *directory, const char *file);
void floor_detail_copy(const char *input, const char *directory, const char *output);

#ifdef __cplusplus
}
#endif

#endif
